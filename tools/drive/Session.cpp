#include "Session.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>

#include "JsonOutput.h"
#include "Terminal.h"
#include "plat/Exception.h"
#include "plat/NoCase.h"
#include "rdr/Exceptions.h"
#include "ruvohost/Launch.h"
#include "ruvohost/Parameters.h"

namespace drive {

namespace {

constexpr int kGreetingTimeoutMs = 15000;
constexpr int kBufferTimeoutMs = 10000;
constexpr int kLeaveTimeoutMs = 5000;
constexpr int kFinishTimeoutMs = 30000;
constexpr size_t kMaxErrors = 65536;

}  // namespace

Session::Session(const SessionOptions& options, host::Transcript& transcript)
    : transcript_(transcript), monitors_(options.monitors), display_(options.display) {
  if (display_.empty() && getenv("DISPLAY")) display_ = getenv("DISPLAY");
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) < 0) throw Failure("pipe failed");
  errorRead_.reset(ends[0]);
  plat::FileDescriptor errorWrite(ends[1]);

  host::LaunchOptions launch = launchOptions(options);
  if (!options.recording.file.empty()) recorder_ = makeRecorder(options);
  // What the agent writes for people is not our output.
  const plat::FileDescriptor nowhere(open("/dev/null", O_WRONLY | O_CLOEXEC));
  launch.standardOutput = nowhere.get();
  launch.standardError = errorWrite.get();
  // A log that is asked for there is to be seen at once.
  showErrors_ = std::any_of(launch.parameters.begin(), launch.parameters.end(), [](const auto& p) {
    return plat::equalNoCase(p.first, "Log") && p.second.find(":stderr:") != std::string::npos;
  });
  try {
    process_ = std::make_unique<host::AgentProcess>(host::AgentProcess::launch(launch));
    errorWrite.reset();
    plat::FileDescriptor channel = process_->takeChannel();
    if (recorder_) channel = recorder_->start(std::move(channel));
    connection_ = std::make_unique<host::AgentConnection>(std::move(channel), &transcript);
    loop_.add(*connection_);
    plat::FileDescriptor::setNonBlocking(errorRead_.get());
    loop_.watch(errorRead_.get(), [this] { readErrors(); });
  } catch (const plat::Exception& e) {
    throw Failure(e.text());
  }
  try {
    greet();
  } catch (const Failure&) {
    leave();
    throw;
  }
}

Session::~Session() {
  leave();
}

void Session::leave() {
  connection_->close();
  process_->wait(kLeaveTimeoutMs);
  process_.reset();
  try {
    // Of a session that failed, too.
    commitRecording();
  } catch (const Failure& e) {
    std::fprintf(stderr, "ruvodrive: %s\n", e.what());
  }
}

void Session::greet() {
  try {
    for (const char* message : {"init", "initRectAndPf"}) {
      connection_->channel().readMessage(message, kGreetingTimeoutMs);
    }
  } catch (const rdr::TimedOut&) {
    throw refusal("timed out waiting for the agent's greeting");
  } catch (const plat::Exception&) {
    throw Failure("the agent ended: " + explainDeath());
  }
}

void Session::commitRecording() {
  if (!recorder_) return;
  try {
    recorder_->commit();
  } catch (const plat::Exception& e) {
    throw Failure(std::string("the session is not recorded: ") + e.text());
  }
}

void Session::readErrors() {
  std::array<char, 4096> bytes;
  ssize_t got;
  while ((got = read(errorRead_.get(), bytes.data(), bytes.size())) > 0) {
    const auto length = static_cast<size_t>(got);
    if (showErrors_) std::fwrite(bytes.data(), 1, length, stderr);
    if (errors_.size() < kMaxErrors) errors_.append(bytes.data(), length);
  }
  if (got == 0) loop_.unwatch(errorRead_.get());
}

Failure Session::refusal(const std::string& text) const {
  return Failure(display_.empty() ? text : text + " (display " + display_ + ")");
}

void Session::startDesktop() {
  connection_->start();
  waitForBuffer(0);
  if (monitors_.empty()) return;
  const int before = transcript_.count("setPixelBuffer");
  connection_->setMonitor(monitors_);
  waitForBuffer(before);
}

void Session::waitForBuffer(int before) {
  // The colours of a colour-map format come in a message of their own.
  const auto published = [&] {
    return transcript_.count("setPixelBuffer") > before &&
           (connection_->pixelBuffer().format.trueColour || !connection_->colourMap().empty());
  };
  const auto refused = [&] { return transcript_.refusal(host::Refusal::Kind::kMonitors); };
  waitUntil([&] { return published() || !transcript_.failure.empty() || refused(); },
            kBufferTimeoutMs, "the framebuffer");
  if (!transcript_.failure.empty()) {
    throw refusal("the desktop failed: " + transcript_.failure);
  }
  if (refused()) throw refusal(refused()->text);
  if (!connection_->pixels()) {
    throw refusal("the framebuffer can't be mapped: " + connection_->segmentError());
  }
}

void Session::waitUntil(const std::function<bool()>& done, int timeoutMs, const std::string& what) {
  loop_.processUntil([&] { return done() || !connection_->isConnected(); }, timeoutMs);
  if (done()) return;
  if (!connection_->isConnected()) throw Failure("the agent ended: " + explainDeath());
  throw refusal("timed out waiting for " + what);
}

bool Session::run(double seconds, const std::function<bool()>& done) {
  const auto over = [&] { return done() || interrupted() || !connection_->isConnected(); };
  if (seconds > 0) {
    loop_.processUntil(over, static_cast<int>(seconds * 1000));
  } else {
    while (!over()) loop_.process(-1);
  }
  return done();
}

void Session::pause(int ms) {
  loop_.processUntil([&] { return !connection_->isConnected(); }, ms);
}

void Session::finish() {
  connection_->finish(kFinishTimeoutMs);
  const std::optional<int> status = process_->wait(kLeaveTimeoutMs);
  if (!status) throw refusal("the agent does not leave");
  if (*status != 0) throw Failure("the agent ended: " + explainDeath());
  commitRecording();
  readErrors();
  for (size_t begin = 0; begin < errors_.size();) {
    const size_t end = std::min(errors_.find('\n', begin), errors_.size());
    const std::string line = errors_.substr(begin, end - begin);
    if (const auto refused = host::RefusalFinder::findInErrors(line)) throw refusal(refused->text);
    begin = end + 1;
  }
  if (!showErrors_) std::fwrite(errors_.data(), 1, errors_.size(), stderr);
}

std::string Session::explainDeath() {
  const std::optional<int> status = process_->wait(kLeaveTimeoutMs);
  readErrors();
  const std::string line = errors_.substr(0, errors_.find('\n'));
  if (!line.empty()) return line;
  if (!transcript_.lastError.empty()) return transcript_.lastError;
  if (!status) return "it closed the channel";
  return *status < 128 ? plat::format("exit status %d", *status)
                       : plat::format("signal %d", *status - 128);
}

std::unique_ptr<SessionRecorder> makeRecorder(const SessionOptions& options) {
  try {
    auto recorder = std::make_unique<SessionRecorder>(options.recording);
    const Json note = {{"recorder", "ruvodrive " RUVO_VERSION},
                       {"mode", options.mode},
                       {"parameters", options.parameters},
                       {"redacted", options.recording.redact}};
    recorder->note(note.dump(-1, ' ', false, Json::error_handler_t::replace));
    return recorder;
  } catch (const plat::Exception& e) {
    throw Failure(options.recording.file + ": " + e.text());
  }
}

std::string agentOf(const SessionOptions& options) {
  return options.agent.empty() ? ruvohost::findAgent() : options.agent;
}

host::LaunchOptions launchOptions(const SessionOptions& options) {
  host::LaunchOptions launch;
  launch.agent = agentOf(options);
  launch.mode = options.mode;
  launch.display = options.display;
  for (const std::string& parameter : options.parameters) {
    const size_t equals = parameter.find('=');
    launch.parameters.emplace_back(parameter.substr(0, equals), parameter.substr(equals + 1));
  }
  return launch;
}

std::string wrongParameter(const SessionOptions& options) {
  if (options.parameters.empty()) return {};
  const std::vector<ruvohost::Parameter> known = ruvohost::parametersOf(agentOf(options));
  for (const std::string& text : options.parameters) {
    const size_t equals = text.find('=');
    if (equals == std::string::npos) return "'" + text + "' is not Name=Value";
    std::string wrong =
        ruvohost::checkParameter(known, text.substr(0, equals), text.substr(equals + 1));
    if (!wrong.empty()) return wrong;
  }
  return {};
}

}  // namespace drive
