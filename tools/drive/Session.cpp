#include "Session.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <climits>

#include "plat/Exception.h"
#include "plat/Files.h"
#include "plat/NoCase.h"

namespace drive {

namespace {

constexpr int kGreetingTimeoutMs = 15000;
constexpr int kBufferTimeoutMs = 10000;
constexpr int kLeaveTimeoutMs = 5000;
constexpr int kFinishTimeoutMs = 30000;

}  // namespace

void Recorder::initRectAndPf(const rfb::Rect& rect, const rfb::PixelFormat& format) {
  rect_ = rect;
  format_ = format;
  greeted_ = true;
}

void Recorder::desktopFailure(const std::string& text, const std::string& kind) {
  failure_ = kind.empty() ? text : "[" + kind + "] " + text;
}

void Recorder::logMsg(const host::LogLine& line) {
  if (line.level != 0) return;
  lastError_ = line.source + ": " + line.text;
  if (line.text.starts_with("Invalid monitor selection")) selectionRefused_ = true;
}

void Recorder::disconnected(const std::string& text) {
  if (!text.empty() && failure_.empty()) failure_ = text;
}

Session::Session(const SessionOptions& options, Recorder& recorder)
    : recorder_(recorder), monitors_(options.monitors) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) < 0) throw Failure("pipe failed");
  errorRead_.reset(ends[0]);
  plat::FileDescriptor errorWrite(ends[1]);

  host::LaunchOptions launch;
  launch.agent = options.agent.empty() ? defaultAgent() : options.agent;
  launch.mode = options.mode;
  launch.display = options.display;
  // What the agent writes for people is not our output.
  const plat::FileDescriptor nowhere(open("/dev/null", O_WRONLY | O_CLOEXEC));
  launch.standardOutput = nowhere.get();
  launch.standardError = errorWrite.get();
  for (const std::string& parameter : options.parameters) {
    const size_t equals = parameter.find('=');
    const auto& [name, value] =
        launch.parameters.emplace_back(parameter.substr(0, equals), parameter.substr(equals + 1));
    // A log that is asked for there is to be seen, and must not fill the pipe.
    if (plat::equalNoCase(name, "Log") && value.find(":stderr:") != std::string::npos) {
      launch.standardError = -1;
    }
  }
  try {
    process_ = std::make_unique<host::AgentProcess>(host::AgentProcess::launch(launch));
    errorWrite.reset();
    connection_ = std::make_unique<host::AgentConnection>(process_->takeChannel(), &recorder);
    loop_.add(*connection_);
  } catch (const plat::Exception& e) {
    throw Failure(e.text());
  }
  waitUntil([&] { return recorder_.greeted(); }, kGreetingTimeoutMs, "the agent's greeting");
}

Session::~Session() {
  if (connection_) connection_->close();
  if (process_) process_->wait(kLeaveTimeoutMs);
}

void Session::startDesktop() {
  connection_->start();
  waitForBuffer(0);
  if (monitors_.empty()) return;
  const int before = recorder_.buffers();
  connection_->setMonitor(monitors_);
  waitForBuffer(before);
}

void Session::waitForBuffer(int before) {
  // The colours of a colour-map format come in a message of their own.
  const auto published = [&] {
    return recorder_.buffers() > before &&
           (connection_->pixelBuffer().format.trueColour || !connection_->colourMap().empty());
  };
  const auto settled = [&] {
    return published() || !recorder_.failure().empty() || recorder_.selectionRefused();
  };
  waitUntil(settled, kBufferTimeoutMs, "the framebuffer");
  if (!recorder_.failure().empty()) throw Failure("the desktop failed: " + recorder_.failure());
  if (recorder_.selectionRefused()) throw Failure(recorder_.lastError());
  if (!connection_->pixels()) {
    throw Failure("the framebuffer can't be mapped: " + connection_->segmentError());
  }
}

void Session::waitUntil(const std::function<bool()>& done, int timeoutMs, const std::string& what) {
  loop_.processUntil([&] { return done() || !connection_->isConnected(); }, timeoutMs);
  if (done()) return;
  if (!connection_->isConnected()) throw Failure("the agent ended: " + explainDeath());
  throw Failure("timed out waiting for " + what);
}

void Session::finish() {
  connection_->finish(kFinishTimeoutMs);
  const std::optional<int> status = process_->wait(kLeaveTimeoutMs);
  if (!status) throw Failure("the agent does not leave");
  if (*status != 0) throw Failure("the agent ended: " + explainDeath());
}

std::string Session::explainDeath() {
  const std::optional<int> status = process_->wait(kLeaveTimeoutMs);
  std::string text;
  if (status) {
    std::array<char, 4096> bytes;
    ssize_t got;
    while ((got = read(errorRead_.get(), bytes.data(), bytes.size())) > 0) {
      text.append(bytes.data(), static_cast<size_t>(got));
    }
  }
  if (const size_t end = text.find('\n'); end != std::string::npos) text.resize(end);
  if (!text.empty()) return text;
  if (!recorder_.lastError().empty()) return recorder_.lastError();
  if (!status) return "it closed the channel";
  return *status < 128 ? plat::format("exit status %d", *status)
                       : plat::format("signal %d", *status - 128);
}

std::string defaultAgent() {
  std::array<char, PATH_MAX> path{};
  const ssize_t length = readlink("/proc/self/exe", path.data(), path.size() - 1);
  if (length > 0) {
    std::string own(path.data(), static_cast<size_t>(length));
    const std::string beside = own.substr(0, own.rfind('/') + 1) + "ruvoagent";
    if (access(beside.c_str(), X_OK) == 0) return beside;
  }
  const std::string found = plat::findProgram("ruvoagent");
  return found.empty() ? "ruvoagent" : found;
}

}  // namespace drive
