#include "x11/TXFixture.h"

#include <sys/wait.h>
#include <unistd.h>

#include <list>

#include "io/FdManager.h"
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
    monitor_.reset();
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

  io::FdManager& loop_ = io::FdManager::instance();
  test::ManualClock clock_;
  std::unique_ptr<tx::DesktopUidMonitor> monitor_;
  std::list<AppWindow> windows_;
  Owners told_;
};

TEST_F(DesktopUidMonitorTest, TellsOfEachChangeOnce) {
  EXPECT_TRUE(log_.has("Starting desktop uid monitor", 30, "DesktopUidMonitor"));
  EXPECT_EQ(walk(), Owners()) << "nobody's windows";

  UserProcess ann(kAnn, "/home/ann/.Xauthority");
  ASSERT_TRUE(ann.isReady());
  window(ann.pid());
  EXPECT_EQ(walk(), Owners{"12345 /home/ann/.Xauthority"});
  EXPECT_EQ(log_.count("Desktop user is 12345", 30, "DesktopUidMonitor"), 1);
  EXPECT_EQ(walk(), Owners());

  // Processes count, not windows; at a draw the lowest id wins.
  UserProcess bob(kBob, "/home/bob/.Xauthority");
  UserProcess bob2(kBob, "/home/bob/other");
  ASSERT_TRUE(bob.isReady() && bob2.isReady());
  for (int i = 0; i < 3; i++) window(bob.pid());
  EXPECT_EQ(walk(), Owners());
  window(bob2.pid());
  EXPECT_EQ(walk(), Owners{"23456 " + std::string(bob.pid() < bob2.pid() ? "/home/bob/.Xauthority"
                                                                         : "/home/bob/other")});

  // With nobody's windows left there is nothing to tell.
  windows_.clear();
  EXPECT_EQ(walk(), Owners());
  window(bob.pid());
  EXPECT_EQ(walk(), Owners());
  window(ann.pid());
  EXPECT_EQ(walk(), Owners{"12345 /home/ann/.Xauthority"});
}

TEST_F(DesktopUidMonitorTest, LooksAtWindowsOfPrograms) {
  UserProcess ann(kAnn, "");
  ASSERT_TRUE(ann.isReady());
  const struct {
    const char* type;
    bool counts;
  } cases[] = {{"NORMAL", true}, {"DOCK", true},    {"", true},     {"DESKTOP", false},
               {"MENU", false},  {"DIALOG", false}, {"NONE", false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.type);
    monitor_ = std::make_unique<tx::DesktopUidMonitor>(this);
    window(ann.pid(), c.type);
    EXPECT_EQ(walk(), c.counts ? Owners{"12345 "} : Owners());
    windows_.clear();
  }
}

TEST_F(DesktopUidMonitorTest, FindsWindowsWhereverTheyAre) {
  UserProcess ann(kAnn, "/x");
  ASSERT_TRUE(ann.isReady());
  // A window manager's frames, and many windows more than one turn looks at.
  Window parent = DefaultRootWindow(client());
  for (int i = 0; i < 3 * tx::DesktopUidMonitor::kWindowsPerTurn; i++) {
    windows_.emplace_back(client(), i % 4 ? parent : DefaultRootWindow(client()), 0);
    parent = windows_.back().id();
  }
  windows_.emplace_back(client(), parent, ann.pid());
  EXPECT_EQ(walk(), Owners{"12345 /x"});
  while (!windows_.empty()) windows_.pop_back();
}

TEST_F(DesktopUidMonitorTest, IgnoresWhatIsNotThere) {
  // No process, or none that can be.
  const pid_t ended = fork();
  if (ended == 0) _exit(0);
  ASSERT_EQ(waitpid(ended, nullptr, 0), ended);
  for (const long pid : {long{ended}, 0L, -1L, long{INT32_MIN}, long{INT32_MAX}})
    windows_.emplace_back(client(), DefaultRootWindow(client()), pid);
  // Properties of other types.
  UserProcess ann(kAnn, "/x");
  ASSERT_TRUE(ann.isReady());
  window(0);
  windows_.back().set("_NET_WM_PID", XA_WINDOW, ann.pid());
  EXPECT_EQ(walk(), Owners());

  UserProcess bob(kBob, "/y");
  ASSERT_TRUE(bob.isReady());
  window(ann.pid());
  EXPECT_EQ(walk(), Owners{"12345 /x"});
  window(bob.pid());
  ann.end();
  EXPECT_EQ(walk(), Owners{"23456 /y"});
}

// Windows and processes come and go while they are looked at.
TEST_F(DesktopUidMonitorTest, SurvivesWhatVanishesMeanwhile) {
  UserProcess bob(kBob, "/y");
  ASSERT_TRUE(bob.isReady());
  for (int i = 0; i < 3 * tx::DesktopUidMonitor::kWindowsPerTurn; i++) window(getpid());
  window(bob.pid());
  clock_.advanceMs(tx::DesktopUidMonitor::kIntervalMs);
  loop_.process(0);
  EXPECT_EQ(told_, Owners()) << "in the middle of a walk";
  windows_.clear();
  EXPECT_LE(walk().size(), 1u);
  EXPECT_FALSE(log_.has("X error"));

  // And so does the X server.
  killServer();
  EXPECT_EQ(walk(), Owners());
}

}  // namespace
