// Starts an agent without a channel, and ends it.
//
//   consumer AGENT
#include <host/AgentProcess.h>

#include <csignal>
#include <cstdio>

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  host::LaunchOptions options;
  options.agent = argv[1];
  options.channel = host::LaunchOptions::Channel::kNone;
  host::AgentProcess agent = host::AgentProcess::launch(options);
  agent.signal(SIGKILL);
  const int status = agent.wait(10000).value_or(-1);
  std::printf("status %d\n", status);
  return status == 128 + SIGKILL ? 0 : 1;
}
