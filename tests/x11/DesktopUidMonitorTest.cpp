#include "x11/TXFixture.h"

#include <unistd.h>

#include <list>

#include "support/AppWindow.h"
#include "support/ManualClock.h"
#include "support/UserProcess.h"
#include "tx/DesktopUidMonitor.h"

namespace {

using support::AppWindow;
using support::UserProcess;
using Owners = std::vector<std::string>;

constexpr unsigned kAnn = 12345;
constexpr unsigned kBob = 23456;

class DesktopUidMonitorTest : public TXFixture, public tx::DesktopUidMonitor::Callback {
 protected:
  void SetUp() override {
    if (getuid() != 0) GTEST_SKIP() << "needs root: it starts processes of other users";
    start();
    monitor_ = std::make_unique<tx::DesktopUidMonitor>(this);
  }
  void TearDown() override {
    windows_.clear();
    TXFixture::TearDown();
  }
  void desktopUidChanged(uid_t userId, const std::string& xauthority) override {
    told_.push_back(std::to_string(userId) + " " + xauthority);
  }

  void window(pid_t pid, const std::string& type = "NORMAL") {
    windows_.emplace_back(client(), DefaultRootWindow(client()), pid, type);
  }
  // What is told until the next walk has ended.
  Owners walk() {
    clock_.advanceMs(tx::DesktopUidMonitor::kIntervalMs);
    while (loop_.process(0)) {
    }
    return std::exchange(told_, {});
  }

  test::ManualClock clock_;
  std::unique_ptr<tx::DesktopUidMonitor> monitor_;
  std::list<AppWindow> windows_;
  Owners told_;
};

TEST_F(DesktopUidMonitorTest, TellsOfEachChangeOnce) {
  // Processes that cannot be, and a property of another type, are nobody's.
  UserProcess ann(kAnn, "/home/ann/.Xauthority"), bob(kBob, "/bob"), bob2(kBob, "/bob");
  ASSERT_TRUE(ann.isReady() && bob.isReady() && bob2.isReady());
  for (const long pid : {0L, -1L, long{INT32_MAX}}) {
    windows_.emplace_back(client(), DefaultRootWindow(client()), pid);
  }
  windows_.back().set("_NET_WM_PID", XA_WINDOW, ann.pid());
  EXPECT_EQ(walk(), Owners());

  window(ann.pid());
  EXPECT_EQ(walk(), Owners{"12345 /home/ann/.Xauthority"});
  EXPECT_EQ(walk(), Owners());

  // Processes count, not windows; at a draw the lowest id wins.
  for (int i = 0; i < 3; ++i) window(bob.pid());
  EXPECT_EQ(walk(), Owners());
  window(bob2.pid());
  EXPECT_EQ(walk(), Owners{"23456 /bob"});

  bob.end();
  bob2.end();
  EXPECT_EQ(walk(), Owners{"12345 /home/ann/.Xauthority"});
  windows_.clear();  // nobody's are left: nothing to tell
  EXPECT_EQ(walk(), Owners());
}

TEST_F(DesktopUidMonitorTest, LooksAtWindowsOfProgramsWhereverTheyAre) {
  UserProcess ann(kAnn, "");
  ASSERT_TRUE(ann.isReady());
  window(ann.pid(), "DESKTOP");
  EXPECT_EQ(walk(), Owners());
  for (const char* type : {"NORMAL", "DOCK", ""}) {
    SCOPED_TRACE(type);
    windows_.clear();
    monitor_ = std::make_unique<tx::DesktopUidMonitor>(this);
    // Inside frames, among more windows than one turn looks at.
    Window parent = DefaultRootWindow(client());
    for (int i = 0; i < 2 * tx::DesktopUidMonitor::kWindowsPerTurn; ++i) {
      windows_.emplace_front(client(), i % 4 ? parent : DefaultRootWindow(client()), 0);
      parent = windows_.front().id();
    }
    windows_.emplace_front(client(), parent, ann.pid(), type);
    EXPECT_EQ(walk(), Owners{"12345 "});
  }
}

// Windows and processes come and go while they are looked at, and so does the X server.
TEST_F(DesktopUidMonitorTest, SurvivesWhatVanishesMeanwhile) {
  for (int i = 0; i < 3 * tx::DesktopUidMonitor::kWindowsPerTurn; ++i) window(getpid());
  clock_.advanceMs(tx::DesktopUidMonitor::kIntervalMs);
  loop_.process(0);
  EXPECT_EQ(told_, Owners()) << "in the middle of a walk";
  windows_.clear();
  EXPECT_LE(walk().size(), 1u);
  EXPECT_FALSE(log_.has("X error"));
  killServer();
  EXPECT_EQ(walk(), Owners());
}

}  // namespace
