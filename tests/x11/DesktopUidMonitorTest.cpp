#include "x11/TXFixture.h"

#include "tx/DesktopUidMonitor.h"

#include <unistd.h>

#include "support/ManualClock.h"
#include "x11/UserProcess.h"

namespace {

using Owners = std::vector<std::string>;

constexpr unsigned kAnn = 12345;
constexpr unsigned kBob = 23456;

class DesktopUidMonitorTest : public TXFixture, public tx::DesktopUidMonitor::Callback {
 protected:
  void SetUp() override {
    if (getuid() != 0) GTEST_SKIP() << "needs root: it starts processes of other users";
    start();
    monitor_.emplace(this);
  }
  void desktopUidChanged(uid_t userId, const std::string& xauthority) override {
    told_.push_back(std::to_string(userId) + " " + xauthority);
  }

  std::unique_ptr<UserProcess> run(unsigned user, const std::string& xauthority = "",
                                   const std::string& type = "NORMAL") {
    auto process = std::make_unique<UserProcess>(server(), client(), user, xauthority, type);
    EXPECT_TRUE(process->isReady());
    return process;
  }
  Window window(Window parent, long pid) {
    const Window made = XCreateSimpleWindow(client(), parent, 0, 0, 10, 10, 0, 0, 0);
    describe(client(), made, pid, "NORMAL");
    return made;
  }
  Window root() const { return DefaultRootWindow(client()); }
  // What is told until the next walk has ended.
  Owners walk() {
    clock_.advanceMs(tx::DesktopUidMonitor::kIntervalMs);
    while (loop_.process(0)) {
    }
    return std::exchange(told_, {});
  }

  support::ManualClock clock_;
  std::optional<tx::DesktopUidMonitor> monitor_;
  Owners told_;
};

TEST_F(DesktopUidMonitorTest, TellsOfEachChangeOnce) {
  const auto ann = run(kAnn, "/home/ann/.Xauthority"), bob = run(kBob, "/bob");
  bob->setProcess(0);
  EXPECT_EQ(walk(), Owners{"12345 /home/ann/.Xauthority"});
  EXPECT_EQ(walk(), Owners());
  // Processes count, not windows; at a draw the lowest id wins.
  bob->setProcess(bob->pid());
  EXPECT_EQ(walk(), Owners());
  const auto bob2 = run(kBob, "/bob");
  EXPECT_EQ(walk(), Owners{"23456 /bob"});
  bob->end();
  bob2->end();
  EXPECT_EQ(walk(), Owners{"12345 /home/ann/.Xauthority"});
  ann->end();  // nobody's are left: nothing to tell
  EXPECT_EQ(walk(), Owners());
}

// What a window says of a process that did not make it is not believed, nor what cannot be.
TEST_F(DesktopUidMonitorTest, WindowsSpeakForTheirOwnProcesses) {
  const auto ann = run(kAnn), bob = run(kBob);
  setProperty(client(), ann->window(), "_NET_WM_PID", XA_WINDOW, ann->pid());
  for (const long pid : {0L, -1L, long{INT32_MAX}, long{ann->pid()}}) {
    window(root(), pid);
    bob->setProcess(pid);
    EXPECT_EQ(walk(), Owners()) << pid;
  }
  ann->setProcess(ann->pid());
  EXPECT_EQ(walk(), Owners{"12345 "});
}

TEST_F(DesktopUidMonitorTest, BelievesWindowsWhenTheServerCannotTell) {
  monitor_.reset();
  use(support::XServer::xvfb("640x480x24", {"-extension", "X-Resource"}));
  monitor_.emplace(this);
  const auto ann = run(kAnn);
  ann->setProcess(0);
  window(root(), ann->pid());
  EXPECT_EQ(walk(), Owners{"12345 "});
  walk();
  EXPECT_EQ(log_.count("X-Resource extension not present", 30), 1);
}

TEST_F(DesktopUidMonitorTest, LooksAtWindowsOfProgramsWhereverTheyAre) {
  for (const std::string type : {"DESKTOP", "NORMAL", "DOCK", ""}) {
    SCOPED_TRACE(type);
    monitor_.emplace(this);
    const auto ann = run(kAnn, "", type);
    // Inside frames, among more windows than one turn looks at.
    Window parent = root();
    for (int i = 0; i < 2 * tx::DesktopUidMonitor::kWindowsPerTurn; ++i) {
      parent = window(i % 4 ? parent : root(), 0);
    }
    XReparentWindow(client(), ann->window(), parent, 0, 0);
    XSync(client(), False);
    EXPECT_EQ(walk(), type == "DESKTOP" ? Owners() : Owners{"12345 "});
  }
  // They go while they are looked at, and so does the X server.
  clock_.advanceMs(tx::DesktopUidMonitor::kIntervalMs);
  loop_.process(0);
  XDestroySubwindows(client(), root());
  XSync(client(), False);
  walk();
  EXPECT_FALSE(log_.has("X error"));
  server().stop();
  EXPECT_EQ(walk(), Owners());
}

}  // namespace
