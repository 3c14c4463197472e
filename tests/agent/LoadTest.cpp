#include <ctime>
#include <fstream>

#include "agent/Agent.h"

namespace {

// How often the process has given the processor away: whenever it goes back to sleep, and when it
// is made to.
int64_t sleepsOf(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  int64_t sum = 0, count = 0;
  for (std::string word; status >> word;) {
    if (word.ends_with("voluntary_ctxt_switches:") && status >> count) sum += count;
  }
  return sum;
}

// Processor time in milliseconds.
int64_t usedBy(pid_t pid) {
  clockid_t clock;
  timespec used;
  if (clock_getcpuclockid(pid, &clock) != 0 || clock_gettime(clock, &used) != 0) return -1;
  return used.tv_sec * 1000 + used.tv_nsec / 1000000;
}

TEST(IdleTest, AgentSleepsWhileNothingHappens) {
  const auto server = support::XServer::xvfb("641x480x24");
  Agent agent(server->display());
  agent.start();
  agent.connection->fbUpdateRequest();
  agent.sync();
  agent.waitFor([] { return false; }, 2000);
  // As root the agent looks for the desktop's owner every five seconds: one of three is free of it.
  int64_t fewest = INT64_MAX, least = INT64_MAX;
  for (int i = 0; i < 3; ++i) {
    const int64_t sleeps = sleepsOf(agent.pid());
    const int64_t used = usedBy(agent.pid());
    agent.waitFor([] { return false; }, 1000);
    fewest = std::min(fewest, sleepsOf(agent.pid()) - sleeps);
    least = std::min(least, usedBy(agent.pid()) - used);
  }
  EXPECT_LE(least, 10);
  // Some kernels do not count, or not from the start: work must show.
  const int64_t idle = sleepsOf(agent.pid());
  for (int i = 0; i < 20; ++i) agent.sync();
  if (sleepsOf(agent.pid()) == idle) GTEST_SKIP() << "the kernel counts no sleeps";
  EXPECT_LE(fewest, 1);
}

}  // namespace
