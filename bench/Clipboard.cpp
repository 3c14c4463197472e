// Text from an X client that copies until the server has it, and from the server until an X client
// has pasted it, beside the same text from one client to another: in each direction the agent takes
// the place of one of the two xclips. Starting them is part of every figure.
//
//   bench-clipboard [--agent PATH]

#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/AgentConnection.h"
#include "host/AgentProcess.h"
#include "host/Transcript.h"
#include "plat/Exception.h"
#include "plat/log/LogManager.h"
#include "support/XServer.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kRounds = 15;
constexpr int kTimeoutMs = 10000;
// What the agent takes of a text.
constexpr size_t kMaxTaken = 256 * 1024;

double msSince(Clock::time_point begin) {
  return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

std::string ownDirectory() {
  char path[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
  const std::string own(path, length > 0 ? static_cast<size_t>(length) : 0);
  return own.substr(0, own.rfind('/') + 1);
}

double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

void copyWithXclip(const std::string& text) {
  FILE* const pipe = popen("exec xclip -i -selection clipboard >/dev/null 2>&1", "w");
  if (!pipe) throw std::runtime_error("popen");
  const bool written = fwrite(text.data(), 1, text.size(), pipe) == text.size();
  if (pclose(pipe) != 0 || !written) throw std::runtime_error("xclip can't copy");
}

// Tries until it gets this text, since owning a selection takes its time.
void pasteWithXclip(const std::string& text) {
  for (const Clock::time_point begin = Clock::now(); msSince(begin) < kTimeoutMs;) {
    FILE* const pipe = popen("exec xclip -o -selection clipboard 2>/dev/null", "r");
    if (!pipe) throw std::runtime_error("popen");
    std::string got;
    static std::array<char, 65536> bytes;
    size_t count;
    while ((count = fread(bytes.data(), 1, bytes.size(), pipe)) > 0) {
      got.append(bytes.data(), count);
    }
    pclose(pipe);
    if (got == text) return;
  }
  throw std::runtime_error("xclip can't paste");
}

class Bench {
 public:
  Bench(host::AgentConnection& agent, const host::Transcript& seen) : agent_(agent), seen_(seen) {}

  void run(const char* name, size_t size) {
    std::vector<double> toServer, fromServer, yardstick;
    // The first round is not counted. All kinds meet the same machine.
    for (int round = 0; round <= kRounds; ++round) {
      const std::string passed = next(size);
      const double times[] = {
          time([&] { copyToServer(next(size)); }),
          time([&] { pasteFromServer(next(size)); }),
          time([&] { xclipToXclip(passed); }),
      };
      // The agent reports that as well: not while something else is timed.
      waitForServer(passed);
      if (round == 0) continue;
      toServer.push_back(times[0]);
      fromServer.push_back(times[1]);
      yardstick.push_back(times[2]);
    }
    const double base = median(yardstick);
    std::printf("%-8s copy to server %7.2f ms (ratio %.2f)   server to paste %7.2f ms (ratio %.2f)",
                name, median(toServer), median(toServer) / base, median(fromServer),
                median(fromServer) / base);
    std::printf("   xclip to xclip %7.2f ms%s\n", base,
                size > kMaxTaken ? "   (the server gets the first 256 KB)" : "");
  }

 private:
  template <typename Work>
  static double time(Work work) {
    const Clock::time_point begin = Clock::now();
    work();
    return msSince(begin);
  }

  // Each text is another one.
  std::string next(size_t size) {
    std::string text = std::to_string(++count_) + " ";
    text.resize(size, 'x');
    return text;
  }

  void copyToServer(const std::string& text) {
    copyWithXclip(text);
    waitForServer(text);
  }
  void pasteFromServer(const std::string& text) {
    agent_.clientCutText(text);
    agent_.channel().flush(kTimeoutMs);
    pasteWithXclip(text);
  }
  void xclipToXclip(const std::string& text) {
    copyWithXclip(text);
    pasteWithXclip(text);
  }
  void waitForServer(const std::string& text) {
    const std::string expected = text.substr(0, kMaxTaken);
    if (!agent_.processUntil(
            [&] { return !seen_.cutTexts.empty() && seen_.cutTexts.back() == expected; },
            kTimeoutMs)) {
      throw std::runtime_error("the server did not get the text");
    }
  }

  host::AgentConnection& agent_;
  const host::Transcript& seen_;
  int count_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  std::string agentPath = ownDirectory() + "ruvoagent";
  if (argc == 3 && std::string(argv[1]) == "--agent") agentPath = argv[2];
  plat::LogManager::instance().setLogSpec("*:stderr:0");
  try {
    const auto server = support::XServer::xvfb("640x480x24");
    server->setDisplayVariable();
    host::LaunchOptions options;
    options.agent = agentPath;
    options.display = server->display();
    options.parameters = {{"EnableClipboard", "1"}};
    options.environment = {{"HOME", "/nonexistent"}};
    host::AgentProcess process = host::AgentProcess::launch(options);
    host::Transcript seen(host::Transcript::Keep::kLast);
    host::AgentConnection agent(process.takeChannel(), &seen);
    agent.start();
    if (!agent.processUntil([&] { return agent.segment() != nullptr; }, kTimeoutMs)) {
      throw std::runtime_error("the agent does not start");
    }

    Bench bench(agent, seen);
    bench.run("1 KB", 1024);
    bench.run("64 KB", 64 * 1024);
    // A little less, since xclip sends what is longer in pieces, which the agent does not take.
    bench.run("1 MB", 1000 * 1000);
    agent.finish(kTimeoutMs);
  } catch (const plat::Exception& e) {
    std::fprintf(stderr, "bench-clipboard: %s\n", e.text());
    return 1;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "bench-clipboard: %s\n", e.what());
    return 1;
  }
  return 0;
}
