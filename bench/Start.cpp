// How long an agent takes to greet its server, beside a program that does nothing but connect to
// the X server; and from "start" to the first framebuffer, beside one grab of the screen.
//
//   bench-start [--agent PATH]

#include <X11/Xlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "agent/FirstCopy.h"
#include "agent/Program.h"
#include "agent/Report.h"
#include "agent/Subject.h"
#include "support/XServer.h"

namespace bench {
namespace {

constexpr int kRounds = 15;
constexpr int kTimeoutMs = 10000;

// What is measured as the yardstick of the start: tells the descriptor that it has connected.
int connectOnly(int descriptor) {
  Display* const display = XOpenDisplay(nullptr);
  return display && write(descriptor, "", 1) == 1 ? 0 : 1;
}

double msToConnect(const std::string& display) {
  host::LaunchOptions options;
  options.agent = ownDirectory() + "bench-start";
  options.mode = "connect";
  options.display = display;
  const Clock::time_point begin = Clock::now();
  host::AgentProcess process = host::AgentProcess::launch(options);
  const plat::FileDescriptor channel = process.takeChannel();
  char byte;
  if (recv(channel.get(), &byte, 1, 0) != 1) throw std::runtime_error("no connection");
  const double ms = msSince(begin);
  process.wait(kTimeoutMs);
  return ms;
}

struct AgentStart {
  double toGreeting, toBuffer;
};

AgentStart startAgent(const std::string& agent, const std::string& display) {
  host::LaunchOptions options;
  options.agent = agent;
  options.display = display;
  const Clock::time_point begin = Clock::now();
  host::AgentProcess process = host::AgentProcess::launch(options);
  host::Transcript seen(host::Transcript::Keep::kLast);
  host::AgentConnection connection(process.takeChannel(), &seen);
  AgentStart result{};
  if (!connection.processUntil([&] { return seen.count("init") > 0; }, kTimeoutMs)) {
    throw std::runtime_error("the agent does not greet");
  }
  result.toGreeting = msSince(begin);
  connection.processUntil([&] { return seen.greeted(); }, kTimeoutMs);
  const Clock::time_point started = Clock::now();
  connection.start();
  if (!connection.processUntil([&] { return connection.segment() != nullptr; }, kTimeoutMs)) {
    throw std::runtime_error("the agent does not publish its buffer");
  }
  result.toBuffer = msSince(started);
  connection.finish(kTimeoutMs);
  return result;
}

void measure(const std::string& agent) {
  const auto server = support::XServer::xvfb("1920x1080x24");
  const support::XConnection bare = server->connect();
  std::vector<double> greeting, connecting, buffer, grab;
  // The first round finds cold files.
  for (int i = 0; i <= kRounds; ++i) {
    const AgentStart start = startAgent(agent, server->display());
    const double connection = msToConnect(server->display());
    const double copy = msOfFirstCopy(bare.get());
    if (i == 0) continue;
    greeting.push_back(start.toGreeting);
    buffer.push_back(start.toBuffer);
    connecting.push_back(connection);
    grab.push_back(copy);
  }
  printDifference("exec to \\\"init\\\": beyond a bare connection", "ms", greeting, connecting,
                  "exec and XOpenDisplay", 5);
  printDifference("\\\"start\\\" to the first buffer: beyond one grab", "ms", buffer, grab,
                  "one grab", 3);
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
  if (argc > 2 && std::strcmp(argv[1], "connect") == 0) {
    return bench::connectOnly(std::atoi(argv[2]));
  }
  std::string agent = bench::ownDirectory() + "ruvoagent";
  if (argc == 3 && std::strcmp(argv[1], "--agent") == 0) {
    agent = argv[2];
  } else if (argc != 1) {
    std::fputs("usage: bench-start [--agent PATH]\n", stderr);
    return 2;
  }
  return bench::runMain("bench-start", [&] { bench::measure(agent); });
}
