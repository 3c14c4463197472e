#include <fstream>
#include <set>
#include <sstream>

#include "agent/Agent.h"
#include "support/TempDir.h"

namespace {

using Names = std::set<std::string>;
using Texts = std::vector<std::string>;

// What xrandr says of the outputs.
std::string outputs(const support::XServer& server) {
  return server.run({"xrandr"});
}

Names ownModes(const support::XServer& server) {
  Names names;
  std::istringstream words(outputs(server));
  for (std::string word; words >> word;) {
    if (word.ends_with("_ruvo")) names.insert(word);
  }
  return names;
}

// "1024x768+0+0" for each output that is on.
Texts monitors(const support::XServer& server) {
  Texts result;
  std::istringstream words(outputs(server));
  for (std::string word; words >> word;) {
    if (std::count(word.begin(), word.end(), '+') == 2) result.push_back(word);
  }
  return result;
}

// Resizes the screen; all monitors show all of it, and it is captured as it looks.
void expectResize(Agent& agent, const support::XServer& server, int width, int height,
                  size_t count) {
  const std::string size = plat::format("%dx%d", width, height);
  SCOPED_TRACE(size);
  agent.connection->setDisplayMode(static_cast<uint32_t>(width), static_cast<uint32_t>(height));
  const rfb::Rect rect(0, 0, width, height);
  ASSERT_TRUE(agent.waitFor([&] { return agent.connection->pixelBuffer().rect == rect; }))
      << agent.seen.logText();
  agent.sync();
  EXPECT_EQ(monitors(server), Texts(count, size + "+0+0"));
  Painter painter(server);
  painter.fill(rect, 0x336699);
  const rfb::Rect corner(width - 7, height - 5, width, height);
  painter.fill(corner, static_cast<unsigned long>(width * 7 + height));
  EXPECT_TRUE(agent.updateUntilChanged(corner));
  EXPECT_EQ(painter.difference(*agent.connection), "");
}

// Whether display modes are supported, and how often they changed.
std::pair<bool, int> modeReports(const Agent& agent) {
  EXPECT_EQ(agent.seen.count("displayModesSupported"), 1);
  return {agent.seen.areModesSupported, agent.seen.count("displayModesUpdated")};
}

TEST(DisplayModeAgentTest, ResizesOneAndFourMonitors) {
  const std::vector<support::XServer::Output> desktops[] = {
      {{1024, 768, 0, 0}},
      // Clones, overlapping ones, and one that nothing touches.
      {{1024, 768, 0, 0}, {1024, 768, 0, 0}, {800, 600, 500, 300}, {640, 480, 2000, 1000}},
  };
  for (const auto& desktop : desktops) {
    const auto server = support::XServer::dummy(desktop);
    const size_t count = monitors(*server).size();
    Agent agent(server->display());
    agent.start();
    EXPECT_EQ(modeReports(agent), std::pair(true, 0));
    const struct {
      int width, height;
      Names modes;
    } cases[] = {
        {1280, 1024, {}},
        {1601, 901, {"1601x901_ruvo"}},
        {64, 64, {"64x64_ruvo"}},
        {3840, 2160, {"3840x2160_ruvo"}},
        {800, 600, {"3840x2160_ruvo"}},
    };
    for (const auto& c : cases) {
      expectResize(agent, *server, c.width, c.height, count);
      EXPECT_EQ(ownModes(*server), c.modes);
      EXPECT_EQ(agent.seen.monitors.back().monitors.size(), count);
    }
    EXPECT_TRUE(agent.seen.hasLog("Setting display mode to 1601x901", 30));
    EXPECT_TRUE(agent.seen.hasLog("Added mode 1601x901_ruvo to 16 outputs", 30));
    EXPECT_TRUE(agent.seen.hasLog("Deleted mode 1601x901_ruvo from 16 outputs", 30));
    EXPECT_FALSE(agent.seen.hasLog("Unable"));
    EXPECT_EQ(modeReports(agent), std::pair(true, 1));
  }
}

TEST(DisplayModeAgentTest, RefusedSizesChangeNothing) {
  const auto server = support::XServer::dummy({{1024, 768, 0, 0}, {800, 600, 1024, 0}});
  Agent agent(server->display(), {{"RandR", "1500x700"}});
  agent.start();
  outputs(*server);  // xrandr makes the server look at its outputs
  const std::string before = outputs(*server);
  const struct {
    uint32_t width, height;
    bool logged;
  } cases[] = {
      {1600, 0, false},
      {16, 16, true},
      {9001, 9001, true},
      {32768, 900, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(plat::format("%ux%u", c.width, c.height));
    agent.connection->setDisplayMode(c.width, c.height);
    agent.sync();
    EXPECT_EQ(outputs(*server), before);
    EXPECT_EQ(agent.seen.hasLog(
                  plat::format("Unable to set display mode to %ux%u", c.width, c.height), 0),
              c.logged);
  }
}

TEST(DisplayModeAgentTest, KeepsTheModesOfTheParameter) {
  const auto server = support::XServer::dummy({{1024, 768, 0, 0}, {800, 600, 1024, 0}});
  Agent agent(server->display(), {{"RandR", "1500x700, nothing ,1500x701"}});
  agent.start();
  EXPECT_EQ(modeReports(agent), std::pair(true, 1));
  EXPECT_EQ(ownModes(*server), (Names{"1500x700_ruvo", "1500x701_ruvo"}));
  agent.connection->setParams({{"RandR", "1500x701,1500x702", 10}});
  expectResize(agent, *server, 1400, 700, 2);
  EXPECT_EQ(ownModes(*server), (Names{"1400x700_ruvo", "1500x701_ruvo", "1500x702_ruvo"}));

  // A mode that one monitor lacks.
  server->run({"xrandr", "--delmode", "DUMMY1", "1500x702_ruvo"});
  expectResize(agent, *server, 1500, 702, 2);
  agent.connection->setParams({{"RandR", "", 10}});
  agent.sync();
  EXPECT_EQ(ownModes(*server), Names{"1500x702_ruvo"}) << "it is in use";
  EXPECT_EQ(modeReports(agent), std::pair(true, 1)) << "changes are told once";
}

// Many resizes while another client sets modes too.
TEST(DisplayModeAgentTest, ManyResizesOnABusyDesktop) {
  const auto server = support::XServer::dummy({{1024, 768, 0, 0}, {800, 600, 1024, 0}});
  Agent agent(server->display());
  agent.start();
  const support::TempDir directory;
  const std::string end = directory / "end";
  const auto meddler = server->start(
      {"sh", "-c",
       "while [ ! -e " + end +
           " ]; do xrandr --output DUMMY1 --mode 640x480 --pos 9x9;"
           "xrandr --newmode meddler 40 700 1300 1300 1300 500 805 805 805;"
           "xrandr --addmode DUMMY0 meddler; xrandr --output DUMMY0 --mode 800x600;"
           "xrandr --delmode DUMMY0 meddler; xrandr --rmmode meddler; done 2>/dev/null"});
  Painter painter(*server);
  for (uint32_t i = 0; i < 30; ++i) {
    agent.connection->setDisplayMode(900 + i % 7, 700 + i % 5);
    painter.fill(rfb::Rect(0, 0, 900, 700), i * 77777);
    agent.connection->fbUpdateRequest();
    agent.connection->process(0);
  }
  agent.sync();
  std::ofstream(end).close();
  ASSERT_TRUE(meddler->wait());
  EXPECT_FALSE(agent.seen.hasLog("Unable to restore")) << agent.seen.logText();

  // The other client may have switched an output off whose mode was gone when it came to set it.
  server->run({"xrandr", "--output", "DUMMY0", "--mode", "1024x768", "--output", "DUMMY1", "--mode",
               "800x600"});
  for (const int height : {701, 702}) expectResize(agent, *server, 901, height, 2);
  EXPECT_EQ(ownModes(*server), Names{"901x702_ruvo"});
  EXPECT_EQ(segmentsOf(agent.pid()), 1);
  EXPECT_FALSE(agent.seen.hasLog("X error")) << agent.seen.logText();
}

}  // namespace
