#include <unistd.h>

#include "agent/Agent.h"
#include "support/UserProcess.h"

namespace {

TEST(DesktopOwnerTest, IsToldByAnAgentOfRoot) {
  if (getuid() != 0) GTEST_SKIP() << "needs root: it starts processes of another user";
  const auto server = support::XServer::xvfb("640x480x24");
  const auto client = server->connect();
  const support::UserProcess user(client.get(), 12345, "/home/user/.Xauthority");
  ASSERT_TRUE(user.isReady());

  Agent agent(server->display());
  ASSERT_TRUE(agent.waitForLog("Desktop user is 12345")) << agent.seen.logText();
  agent.sync();
  EXPECT_TRUE(agent.seen.hasLog("Starting desktop uid monitor", 30));
  ASSERT_FALSE(agent.seen.owners.empty());
  EXPECT_EQ(agent.seen.owners.back().userId, 12345u);
  EXPECT_EQ(agent.seen.owners.back().xauthority, "/home/user/.Xauthority");
  EXPECT_FALSE(agent.seen.hasLog("Window manager has started")) << "nothing waited for one";
}

}  // namespace
