#include "agent/Agent.h"

namespace {

std::string describe(const host::MonitorsMessage& message) {
  std::string text;
  for (const plat::DisplayInfo& m : message.monitors) {
    text += plat::format("%s: %d,%d to %d,%d%s; ", m.name.c_str(), m.left, m.top, m.right, m.bottom,
                         m.primary ? " primary" : "");
  }
  return text;
}

// The captured area once the selection has been applied.
rfb::Rect selected(Agent& agent, const std::string& selection) {
  agent.connection->setMonitor(selection);
  agent.sync();
  return agent.connection->pixelBuffer().rect;
}

// Three monitors, and one that is off between them.
TEST(MonitorsTest, AreReportedSelectedAndAllThatIsCaptured) {
  const auto server = support::XServer::dummy(
      {{1024, 768, 0, 0}, {0, 0, 0, 0}, {800, 600, 1024, 0}, {640, 480, 1024, 600}});
  Painter painter(*server);
  const rfb::Rect hidden(100, 900, 200, 1000);
  painter.fill(hidden, 0x224466);
  Agent agent(server->display());
  agent.start();
  ASSERT_EQ(agent.seen.monitors.size(), 1u);
  EXPECT_EQ(describe(agent.seen.monitors[0]),
            "1: 0,0 to 1024,768 primary; 2: 1024,0 to 1824,600; 3: 1024,600 to 1664,1080; ");
  EXPECT_EQ(agent.seen.monitors[0].monitors[2].depth, 24u);
  const rfb::Rect whole = agent.connection->pixelBuffer().rect;
  EXPECT_NE(painter.difference(*agent.connection, hidden), "") << "no monitor shows it";
  EXPECT_EQ(painter.difference(*agent.connection, rfb::Rect(0, 0, 1024, 768)), "");

  EXPECT_EQ(selected(agent, "2"), rfb::Rect(1024, 0, 1824, 600));
  EXPECT_EQ(agent.seen.monitors.back().selection, "2");
  EXPECT_TRUE(agent.seen.hasLog("Monitor 2 rect 800x600 at 1024,0", 30));
  painter.fill(rfb::Rect(1000, 50, 1050, 60), 0xFFAA00);
  EXPECT_EQ(agent.update().changed.boundingRect().tl.x, 1024) << "only what is captured counts";
  EXPECT_EQ(painter.difference(*agent.connection), "");

  EXPECT_EQ(selected(agent, " 3, 1 "), rfb::Rect(0, 0, 1664, 1080));
  const size_t reports = agent.seen.monitors.size();
  EXPECT_EQ(selected(agent, "4"), rfb::Rect(0, 0, 1664, 1080));
  EXPECT_TRUE(agent.seen.hasLog("Invalid monitor selection: No monitor '4'", 0));
  EXPECT_EQ(agent.seen.monitors.size(), reports);

  // The parameter wins, unless it names nothing that exists.
  agent.connection->setParams({{"Monitor", "3", 10}});
  EXPECT_EQ(selected(agent, "2"), rfb::Rect(1024, 600, 1664, 1080));
  EXPECT_EQ(agent.seen.monitors.back().parameter, "3");
  EXPECT_EQ(agent.seen.monitors.back().selection, "3");
  agent.connection->setParams({{"Monitor", "DP-1", 10}, {"_ClipToMonitors", "0", 10}});
  EXPECT_EQ(selected(agent, "1"), rfb::Rect(0, 0, 1024, 768));
  EXPECT_TRUE(agent.seen.hasLog("Bad Monitor param: No monitor 'DP-1'", 0));
  EXPECT_EQ(selected(agent, ""), whole);
  EXPECT_EQ(painter.difference(*agent.connection), "") << "without a clip";

  // A start begins without a selection.
  EXPECT_EQ(selected(agent, "2"), rfb::Rect(1024, 0, 1824, 600));
  agent.connection->start();
  agent.sync();
  EXPECT_EQ(agent.connection->pixelBuffer().rect, whole);
}

// Somebody else than the agent switches monitors on and off and moves them, also without a change
// of the screen's size: the report, the clip and what is captured of a selected one follow.
TEST(MonitorsTest, AreFollowed) {
  const auto server =
      support::XServer::dummy({{800, 600, 0, 0}, {800, 600, 800, 0}, {640, 480, 0, 600}});
  Painter painter(*server);
  Agent agent(server->display(), {{"CaptureMethod", "2"}});
  agent.start();
  EXPECT_EQ(selected(agent, "2"), rfb::Rect(800, 0, 1600, 600));
  const struct {
    const char* arguments;
    const char* monitors;
    rfb::Rect captured;
  } steps[] = {
      {"--output DUMMY1 --off",
       "1: 0,0 to 800,600 primary; 2: 0,600 to 640,1080; ",
       {0, 600, 640, 1080}},
      {"--output DUMMY2 --off", "1: 0,0 to 800,600 primary; ", {0, 0, 1600, 1200}},
      {"--output DUMMY1 --mode 640x480 --pos 0x600 --output DUMMY0 --off "
       "--output DUMMY2 --mode 640x480 --pos 800x0",
       "1: 0,600 to 640,1080 primary; 2: 800,0 to 1440,480; ",
       {800, 0, 1440, 480}},
  };
  for (const auto& step : steps) {
    SCOPED_TRACE(step.arguments);
    server->run({"sh", "-c", plat::format("xrandr --fb 1600x1200 %s", step.arguments)});
    ASSERT_TRUE(agent.waitFor([&] {
      return describe(agent.seen.monitors.back()) == step.monitors;
    })) << describe(agent.seen.monitors.back());
    agent.sync();
    EXPECT_EQ(agent.connection->pixelBuffer().rect, step.captured);
    const plat::DisplayInfo& m = agent.seen.monitors.back().monitors.back();
    const rfb::Rect area(m.left + 5, m.top + 5, m.left + 30, m.top + 20);
    painter.fill(area, static_cast<unsigned long>(0x111111 + m.left));
    EXPECT_TRUE(agent.updateUntilChanged(area));
    EXPECT_EQ(painter.difference(*agent.connection, area), "");
  }
}

TEST(MonitorsTest, WithoutRandrThereIsOneThatStays) {
  const auto server = support::XServer::xvfb("641x480x24", {"-extension", "RANDR"});
  Agent agent(server->display(), {{"Monitor", "1"}, {"RandR", "320x200"}});
  agent.start();
  EXPECT_TRUE(agent.seen.hasLog("XRandr extension not present", 30));
  EXPECT_EQ(agent.seen.count("displayModesSupported"), 1);
  EXPECT_FALSE(agent.seen.areModesSupported);
  agent.connection->setDisplayMode(320, 200);
  selected(agent, "1");
  ASSERT_EQ(agent.seen.monitors.size(), 1u) << "a selection needs RANDR";
  EXPECT_EQ(describe(agent.seen.monitors[0]), "1: 0,0 to 641,480 primary; ");
  EXPECT_EQ(agent.seen.monitors[0].selection, "1");
}

}  // namespace
