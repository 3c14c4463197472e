#include <chrono>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <thread>

#include "agent/Agent.h"

namespace {

// How often the process has given the processor away: whenever it goes back to sleep, and when it
// is made to.
int64_t sleepsOf(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  int64_t sum = 0;
  for (std::string line; std::getline(status, line);) {
    if (const size_t at = line.find("voluntary_ctxt_switches:"); at != std::string::npos) {
      sum += std::atoll(line.c_str() + line.find(':') + 1);
    }
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

// A cursor that changes all the time does not fill the channel of a server that does not read.
TEST(SlowServerTest, SurvivesAFloodOfCursors) {
  const auto server = support::XServer::xvfb("641x480x24");
  Painter painter(*server);
  Display* const display = painter.display.get();
  XWarpPointer(display, None, painter.root, 0, 0, 0, 0, 300, 300);
  // 32 by 32 pixels: an image has 4 KB, so that many are far more than the channel holds.
  const std::string bits(128, '\x0F');
  const Pixmap source = XCreateBitmapFromData(display, painter.root, bits.data(), 32, 32);
  XColor black{};
  const auto show = [&](unsigned hotspot) {
    const Cursor cursor =
        XCreatePixmapCursor(display, source, source, &black, &black, hotspot, hotspot);
    XDefineCursor(display, painter.root, cursor);
    XFreeCursor(display, cursor);
    XSync(display, False);
  };
  Agent agent(server->display(),
              {{"CaptureMethod", "2"}, {"PollCursorTime", "0"}, {"MaxOutBufferSize", "262144"}});
  agent.start();
  agent.seen.cursors.clear();

  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  for (unsigned i = 0; i < 400; ++i) {
    const int64_t before = sleepsOf(agent.pid());
    show(i % 2);
    while (sleepsOf(agent.pid()) <= before && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::yield();
    }
  }
  show(3);
  const rfb::Rect area(10, 20, 50, 40);
  painter.fill(area, 0xFF0000);
  ASSERT_TRUE(agent.waitFor([&] {
    return !agent.seen.cursors.empty() && agent.seen.cursors.back().rect.tl == rfb::Point(-3, -3);
  })) << agent.seen.logText();
  EXPECT_TRUE(agent.updateUntilChanged(area));
  EXPECT_EQ(painter.difference(*agent.connection, area), "");
  EXPECT_LT(agent.seen.cursors.size(), 200u);
}

}  // namespace
