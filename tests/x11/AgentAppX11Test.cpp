#include "x11/TXFixture.h"

#include "svr/AgentAppX11.h"

#include <unistd.h>

#include "io/FdIo.h"
#include "io/LogDestIpc.h"
#include "support/Frames.h"
#include "support/ManualClock.h"
#include "support/SocketPair.h"
#include "x11/UserProcess.h"

namespace {

using AgentAppX11Test = TXFixture;

// Some old X servers must not be asked for cursors before somebody has logged in.
TEST_F(AgentAppX11Test, TracksCursorsOnceADesktopHasAnOwner) {
  if (getuid() != 0) GTEST_SKIP() << "needs root: it starts a process of another user";
  start();
  VendorRelease(display()) = 10600000;
  support::ManualClock clock;
  support::SocketPair channel;
  const std::string owner = support::u32(0) + support::u32(12345) + support::shortString("/x");
  // What is sent when everything that waits has been handled.
  const auto receive = [&] {
    while (loop_.process(0)) {
    }
    std::string bytes = channel.take(), names;
    for (const support::Message& message : support::takeMessages(bytes)) {
      if (message.name != "logMsg") names += message.name + " ";
      EXPECT_TRUE(message.name != "desktopUidChanged" || message.body == owner);
    }
    return names;
  };
  io::LogDestIpc logDest;
  svr::AgentAppX11 app(true, logDest, std::make_unique<io::FdIo>(std::move(channel.ours)));
  EXPECT_TRUE(log_.has("Temporarily disabling XFixes cursors: X.Org 10600000 too old", 30));
  channel.put(support::message("start"));
  EXPECT_NE(receive().find("setCursorImage"), std::string::npos) << "the built-in arrow";

  const UserProcess user(server(), client(), 12345, "/x");
  ASSERT_TRUE(user.isReady());
  clock.advanceMs(tx::DesktopUidMonitor::kIntervalMs);
  EXPECT_EQ(receive(), "setCursorImage desktopUidChanged ");
  clock.advanceMs(tx::DesktopUidMonitor::kIntervalMs);
  EXPECT_EQ(receive(), "");
  EXPECT_EQ(log_.count("Window manager has started; using XFixes", 100, "AgentAppX11"), 1);
}

TEST_F(AgentAppX11Test, OnlyRootLooksForTheOwner) {
  start();
  for (const bool isRoot : {false, true}) {
    io::LogDestIpc logDest;
    const plat::SharedMemPermissions nobody;
    svr::SDesktopX11 desktop(nobody, false);
    const svr::AgentServerX11 server(desktop, isRoot, logDest, nullptr);
    EXPECT_EQ(log_.has("Starting desktop uid monitor", 30, "DesktopUidMonitor"), isRoot);
  }
}

}  // namespace
