#include "agent/Agent.h"

namespace {

// Three monitors, and one that is off between them.
class MonitorsTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    server = support::XServer::dummy(
        {{1024, 768, 0, 0}, {0, 0, 0, 0}, {800, 600, 1024, 0}, {640, 480, 1024, 600}});
  }
  static void TearDownTestSuite() { server.reset(); }

  static std::string describe(const plat::DisplayInfo& m) {
    return plat::format("%s: %d,%d to %d,%d primary %d depth %u", m.name.c_str(), m.left, m.top,
                        m.right, m.bottom, m.primary, m.depth);
  }
  // The size of the captured area once the selection has been applied.
  static rfb::Rect selected(Agent& agent, const std::string& selection) {
    agent.connection->setMonitor(selection);
    agent.sync();
    return agent.connection->pixelBuffer().rect;
  }

  static std::unique_ptr<support::XServer> server;
};
std::unique_ptr<support::XServer> MonitorsTest::server;

TEST_F(MonitorsTest, ReportsAndSelects) {
  Agent agent(server->display());
  agent.start();
  ASSERT_EQ(agent.seen.monitors.size(), 1u);
  const host::MonitorsMessage all = agent.seen.monitors[0];
  std::vector<std::string> described;
  for (const plat::DisplayInfo& monitor : all.monitors) described.push_back(describe(monitor));
  EXPECT_EQ(described, (std::vector<std::string>{"1: 0,0 to 1024,768 primary 1 depth 24",
                                                 "2: 1024,0 to 1824,600 primary 0 depth 24",
                                                 "3: 1024,600 to 1664,1080 primary 0 depth 24"}));
  EXPECT_EQ(all.parameter, "");
  EXPECT_EQ(all.selection, "");
  const rfb::Rect whole = agent.connection->pixelBuffer().rect;

  Painter painter(*server);
  EXPECT_EQ(selected(agent, "2"), rfb::Rect(1024, 0, 1824, 600));
  EXPECT_EQ(agent.seen.monitors.back().selection, "2");
  EXPECT_TRUE(agent.seen.hasLog("Monitor 2 rect 800x600 at 1024,0", 30));
  painter.fill(rfb::Rect(1000, 50, 1050, 60), 0xFFAA00);
  EXPECT_EQ(agent.update().changed.boundingRect().tl.x, 1024) << "only what is captured counts";
  EXPECT_EQ(painter.difference(*agent.connection), "");

  EXPECT_EQ(selected(agent, " 3, 1 "), rfb::Rect(0, 0, 1664, 1080));
  const size_t reports = agent.seen.monitors.size();
  EXPECT_EQ(selected(agent, " 3, 1 "), rfb::Rect(0, 0, 1664, 1080));
  EXPECT_EQ(selected(agent, "4"), rfb::Rect(0, 0, 1664, 1080));
  EXPECT_TRUE(agent.seen.hasLog("Invalid monitor selection: No monitor '4'", 0));
  EXPECT_EQ(agent.seen.monitors.size(), reports);

  // The parameter wins, unless it names nothing that exists.
  agent.connection->setParams({{"Monitor", "3", 10}});
  EXPECT_EQ(selected(agent, "2"), rfb::Rect(1024, 600, 1664, 1080));
  EXPECT_EQ(agent.seen.monitors.back().parameter, "3");
  EXPECT_EQ(agent.seen.monitors.back().selection, "3");
  agent.connection->setParams({{"Monitor", "DP-1", 10}});
  EXPECT_EQ(selected(agent, "1"), rfb::Rect(0, 0, 1024, 768));
  EXPECT_TRUE(agent.seen.hasLog("Bad Monitor param: No monitor 'DP-1'", 0));
  EXPECT_EQ(selected(agent, ""), whole);

  // A start begins without a selection.
  EXPECT_EQ(selected(agent, "2"), rfb::Rect(1024, 0, 1824, 600));
  agent.connection->start();
  agent.sync();
  EXPECT_EQ(agent.connection->pixelBuffer().rect, whole);
}

TEST_F(MonitorsTest, WhatNoMonitorShowsIsNotCaptured) {
  Painter painter(*server);
  const rfb::Rect hidden(100, 900, 200, 1000);
  for (const bool clip : {true, false}) {
    painter.fill(hidden, 0x224466);
    Agent agent(server->display(), {{"_ClipToMonitors", clip ? "1" : "0"}});
    agent.start();
    EXPECT_EQ(painter.difference(*agent.connection, hidden).empty(), !clip);
    EXPECT_EQ(painter.difference(*agent.connection, rfb::Rect(0, 0, 1024, 768)), "");
  }
}

// Somebody else than the agent switches monitors on and off and moves them: the report and the
// clip follow, also where the screen's size stays or changes before the monitors do.
TEST(MonitorsSwitchedOutsideTest, AreFollowed) {
  const auto server = support::XServer::dummy({{800, 600, 0, 0}, {800, 600, 800, 0}});
  Painter painter(*server);
  Agent agent(server->display(), {{"CaptureMethod", "2"}});
  agent.start();
  const auto describe = [&] {
    std::string text;
    for (const plat::DisplayInfo& m : agent.seen.monitors.back().monitors)
      text += plat::format("%d,%d to %d,%d; ", m.left, m.top, m.right, m.bottom);
    return text;
  };
  const struct {
    std::vector<std::string> arguments;
    std::string monitors;
  } steps[] = {
      {{"--output", "DUMMY1", "--off"}, "0,0 to 800,600; "},
      {{"--output", "DUMMY1", "--mode", "800x600", "--right-of", "DUMMY0"},
       "0,0 to 800,600; 800,0 to 1600,600; "},
      {{"--fb", "1600x1200"}, "0,0 to 800,600; 800,0 to 1600,600; "},
      {{"--fb", "1600x1200", "--output", "DUMMY1", "--pos", "800x600"},
       "0,0 to 800,600; 800,600 to 1600,1200; "},
      {{"--fb", "1600x1200", "--output", "DUMMY1", "--off"}, "0,0 to 800,600; "},
      {{"--fb", "1600x1200", "--output", "DUMMY1", "--mode", "800x600", "--pos", "0x600"},
       "0,0 to 800,600; 0,600 to 800,1200; "},
  };
  for (int round = 0; round < 3; round++) {
    for (const auto& step : steps) {
      std::vector<std::string> command{"xrandr"};
      command.insert(command.end(), step.arguments.begin(), step.arguments.end());
      SCOPED_TRACE(testing::PrintToString(command));
      server->run(command);
      ASSERT_TRUE(agent.waitFor([&] { return describe() == step.monitors; }, 3000)) << describe();
      agent.sync();
      for (const plat::DisplayInfo& m : agent.seen.monitors.back().monitors) {
        const rfb::Rect area(m.left + 5, m.top + 5, m.left + 30, m.top + 20);
        painter.fill(area, static_cast<unsigned long>(0x111111 * (round + 1) + m.left));
        EXPECT_TRUE(agent.updateUntilChanged(area));
        EXPECT_EQ(painter.difference(*agent.connection, area), "");
      }
    }
  }
}

TEST(MonitorsWithoutRandrTest, ReportsOneMonitor) {
  const auto server = support::XServer::xvfb("641x480x24", {"-extension", "RANDR"});
  Agent agent(server->display(), {{"Monitor", "1"}});
  agent.start();
  const host::MonitorsMessage& message = agent.seen.monitors.at(0);
  ASSERT_EQ(message.monitors.size(), 1u);
  EXPECT_TRUE(message.monitors[0].primary);
  EXPECT_EQ(message.monitors[0].right, 641);
  EXPECT_EQ(message.monitors[0].bottom, 480);
  EXPECT_EQ(message.selection, "1");
  agent.connection->setMonitor("1");
  agent.sync();
  EXPECT_EQ(agent.seen.monitors.size(), 1u) << "a selection needs RANDR";
}

}  // namespace
