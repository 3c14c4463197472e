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

  void window(pid_t pid) { windows_.emplace_back(client(), DefaultRootWindow(client()), pid); }
  // What is told until the next walk has ended.
  Owners walk() {
    clock_.advanceMs(tx::DesktopUidMonitor::kIntervalMs);
    while (loop_.process(0)) {
    }
    return std::exchange(told_, {});
  }

  support::ManualClock clock_;
  std::unique_ptr<tx::DesktopUidMonitor> monitor_;
  std::list<AppWindow> windows_;
  Owners told_;
};

TEST_F(DesktopUidMonitorTest, TellsOfEachChangeOnce) {
  UserProcess ann(client(), kAnn, "/home/ann/.Xauthority"), bob(client(), kBob, "/bob");
  ASSERT_TRUE(ann.isReady() && bob.isReady());
  bob.setProcess(0);
  EXPECT_EQ(walk(), Owners{"12345 /home/ann/.Xauthority"});
  EXPECT_EQ(walk(), Owners());

  // Processes count, not windows; at a draw the lowest id wins.
  bob.setProcess(bob.pid());
  EXPECT_EQ(walk(), Owners());
  UserProcess bob2(client(), kBob, "/bob");
  ASSERT_TRUE(bob2.isReady());
  EXPECT_EQ(walk(), Owners{"23456 /bob"});

  bob.end();
  bob2.end();
  EXPECT_EQ(walk(), Owners{"12345 /home/ann/.Xauthority"});
  ann.end();  // nobody's are left: nothing to tell
  EXPECT_EQ(walk(), Owners());
}

// What a window says of a process that did not make it is not believed, nor what cannot be.
TEST_F(DesktopUidMonitorTest, WindowsSpeakForTheirOwnProcesses) {
  UserProcess ann(client(), kAnn, ""), bob(client(), kBob, "");
  ASSERT_TRUE(ann.isReady() && bob.isReady());
  support::setProperty(client(), ann.window(), "_NET_WM_PID", XA_WINDOW, ann.pid());
  for (const long pid : {0L, -1L, long{INT32_MAX}, long{ann.pid()}}) {
    window(static_cast<pid_t>(pid));
    bob.setProcess(pid);
    EXPECT_EQ(walk(), Owners()) << pid;
  }
  ann.setProcess(ann.pid());
  EXPECT_EQ(walk(), Owners{"12345 "});
}

TEST_F(DesktopUidMonitorTest, BelievesWindowsWhenTheServerCannotTell) {
  monitor_.reset();
  use(support::XServer::xvfb("640x480x24", {"-extension", "X-Resource"}));
  monitor_ = std::make_unique<tx::DesktopUidMonitor>(this);
  UserProcess ann(client(), kAnn, "");
  ASSERT_TRUE(ann.isReady());
  ann.setProcess(0);
  window(ann.pid());
  EXPECT_EQ(walk(), Owners{"12345 "});
  walk();
  EXPECT_EQ(log_.count("X-Resource extension not present", 30), 1);
}

TEST_F(DesktopUidMonitorTest, LooksAtWindowsOfProgramsWhereverTheyAre) {
  for (const char* type : {"DESKTOP", "NORMAL", "DOCK", ""}) {
    SCOPED_TRACE(type);
    windows_.clear();
    monitor_ = std::make_unique<tx::DesktopUidMonitor>(this);
    UserProcess ann(client(), kAnn, "", type);
    ASSERT_TRUE(ann.isReady());
    // Inside frames, among more windows than one turn looks at.
    Window parent = DefaultRootWindow(client());
    for (int i = 0; i < 2 * tx::DesktopUidMonitor::kWindowsPerTurn; ++i) {
      windows_.emplace_front(client(), i % 4 ? parent : DefaultRootWindow(client()), 0);
      parent = windows_.front().id();
    }
    XReparentWindow(client(), ann.window(), parent, 0, 0);
    XSync(client(), False);
    EXPECT_EQ(walk(), type == std::string("DESKTOP") ? Owners() : Owners{"12345 "});
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
