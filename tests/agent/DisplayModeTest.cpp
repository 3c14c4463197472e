#include <atomic>
#include <fstream>
#include <set>
#include <sstream>
#include <thread>

#include "agent/Agent.h"
#include "support/TempDir.h"

namespace {

using Reports = std::vector<std::string>;
using Names = std::set<std::string>;

// What xrandr says of the outputs.
std::string outputs(const support::XServer& server) {
  return server.run({"xrandr"});
}

Names ownModes(const support::XServer& server) {
  Names names;
  std::istringstream words(outputs(server));
  for (std::string word; words >> word;)
    if (word.ends_with("_ruvo")) names.insert(word);
  return names;
}

// "1024x768+0+0" for each output that is on.
std::vector<std::string> monitors(const support::XServer& server) {
  std::vector<std::string> result;
  std::istringstream lines(outputs(server));
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    for (std::string word; line.find(" connected ") != std::string::npos && words >> word;)
      if (word.find('x') != std::string::npos && word.find('+') != std::string::npos)
        result.push_back(word);
  }
  return result;
}

std::string name(int width, int height) {
  return std::to_string(width) + "x" + std::to_string(height);
}

// The screen has the size, and is captured as it looks where monitors show it.
void expectScreen(Agent& agent, const support::XServer& server, int width, int height,
                  const rfb::Rect& shown) {
  const rfb::Rect rect(0, 0, width, height);
  ASSERT_TRUE(agent.waitFor([&] { return agent.connection->pixelBuffer().rect == rect; }))
      << agent.seen.logText();
  agent.sync();
  Painter painter(server);
  painter.fill(rect, 0x336699);
  const rfb::Rect corner(shown.br.x - 7, shown.br.y - 5, shown.br.x, shown.br.y);
  painter.fill(corner, static_cast<unsigned long>(width * 7 + height));
  EXPECT_TRUE(agent.updateUntilChanged(corner));
  EXPECT_EQ(painter.difference(*agent.connection, shown), "");
}
void expectScreen(Agent& agent, const support::XServer& server, int width, int height) {
  expectScreen(agent, server, width, height, rfb::Rect(0, 0, width, height));
}

TEST(DisplayModeAgentTest, ResizesOneTwoAndFourMonitors) {
  const std::vector<support::XServer::Output> desktops[] = {
      {{1024, 768, 0, 0}},
      {{1024, 768, 0, 0}, {0, 0, 0, 0}, {800, 600, 1024, 0}},
      // Clones, overlapping ones, and one that nothing touches.
      {{1024, 768, 0, 0}, {1024, 768, 0, 0}, {800, 600, 500, 300}, {640, 480, 2000, 1000}},
  };
  for (const auto& desktop : desktops) {
    const auto server = support::XServer::dummy(desktop);
    const size_t count = monitors(*server).size();
    SCOPED_TRACE(count);
    Agent agent(server->display());
    agent.start();
    EXPECT_EQ(agent.seen.reports, Reports{"displayModesSupported 1"});
    const struct {
      int width, height;
      Names modes;
    } cases[] = {
        {1280, 1024, {}},
        {1601, 901, {"1601x901_ruvo"}},
        {1603, 901, {"1603x901_ruvo"}},
        {1603, 1205, {"1603x1205_ruvo"}},
        {64, 64, {"64x64_ruvo"}},
        {3840, 2160, {"3840x2160_ruvo"}},
        {800, 600, {"3840x2160_ruvo"}},
    };
    for (const auto& c : cases) {
      SCOPED_TRACE(name(c.width, c.height));
      agent.connection->setDisplayMode(static_cast<uint32_t>(c.width),
                                       static_cast<uint32_t>(c.height));
      expectScreen(agent, *server, c.width, c.height);
      EXPECT_EQ(monitors(*server),
                std::vector<std::string>(count, name(c.width, c.height) + "+0+0"));
      EXPECT_EQ(ownModes(*server), c.modes);
      EXPECT_EQ(agent.seen.monitors.back().monitors.size(), count);
    }
    EXPECT_TRUE(agent.seen.hasLog("Added mode 1601x901_ruvo to 16 outputs", 30));
    EXPECT_TRUE(agent.seen.hasLog("Deleted mode 1601x901_ruvo from 16 outputs", 30));
    EXPECT_FALSE(agent.seen.hasLog("Unable"));
    EXPECT_EQ(agent.seen.reports, (Reports{"displayModesSupported 1", "displayModesUpdated"}));
  }
}

TEST(DisplayModeAgentTest, RefusedSizesChangeNothing) {
  const auto server =
      support::XServer::dummy({{1024, 768, 0, 0}, {800, 600, 1024, 0}, {640, 480, 300, 200}});
  Agent agent(server->display());
  agent.start();
  agent.connection->setDisplayMode(1601, 901);
  agent.sync();
  server->run({"xrandr", "--fb", "1700x1000", "--output", "DUMMY1", "--mode", "800x600", "--pos",
               "900x100"});
  const std::string before = outputs(*server);
  const struct {
    uint32_t width, height;
    bool logged;
  } cases[] = {
      {0, 0, false},       {0, 900, false},        {1600, 0, false},       {1, 1, true},
      {16, 16, true},      {63, 900, true},        {9001, 9001, true},     {32767, 32767, true},
      {32768, 900, false}, {1, 0xFFFFFFFF, false}, {0x80000000, 1, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(plat::format("%ux%u", c.width, c.height));
    agent.seen.log.clear();
    agent.connection->setDisplayMode(c.width, c.height);
    agent.sync();
    EXPECT_EQ(outputs(*server), before);
    EXPECT_EQ(agent.seen.hasLog(
                  plat::format("Unable to set display mode to %ux%u", c.width, c.height), 0),
              c.logged);
  }
  expectScreen(agent, *server, 1700, 1000, rfb::Rect(0, 0, 1601, 901));
}

// The screen's size stays, but not what the monitors show of it.
TEST(DisplayModeAgentTest, SameSizeOnOtherMonitors) {
  const auto server = support::XServer::dummy({{1024, 768, 0, 0}, {800, 600, 1024, 0}});
  Agent agent(server->display());
  agent.start();
  for (int i = 0; i < 2; i++) {
    agent.connection->setDisplayMode(1824, 768);
    agent.sync();
    EXPECT_EQ(monitors(*server), std::vector<std::string>(2, "1824x768+0+0"));
    expectScreen(agent, *server, 1824, 768);
    server->run({"xrandr", "--fb", "1824x768", "--output", "DUMMY0", "--mode", "640x480",
                 "--output", "DUMMY1", "--mode", "800x600", "--pos", "1024x0"});
    agent.connection->start();
    agent.sync();
  }
}

TEST(DisplayModeAgentTest, OneOutputOfXvfb) {
  const auto server = support::XServer::xvfb("1280x800x24");
  Agent agent(server->display());
  agent.start();
  const std::string before = outputs(*server);
  agent.connection->setDisplayMode(1281, 800);
  agent.sync();
  EXPECT_TRUE(agent.seen.hasLog("Unable to set display mode to 1281x800", 0));
  EXPECT_EQ(outputs(*server), before);
  for (const int width : {1000, 1001, 1280}) {
    agent.connection->setDisplayMode(static_cast<uint32_t>(width), 800);
    expectScreen(agent, *server, width, 800);
    EXPECT_EQ(monitors(*server), std::vector<std::string>{name(width, 800) + "+0+0"});
  }
}

TEST(DisplayModeAgentTest, WithoutRandrRequestsAreIgnored) {
  const auto server = support::XServer::xvfb("640x480x24", {"-extension", "RANDR"});
  Agent agent(server->display(), {{"RandR", "320x200"}});
  agent.start();
  EXPECT_EQ(agent.seen.reports, Reports{"displayModesSupported 0"});
  agent.connection->setDisplayMode(320, 200);
  agent.sync();
  EXPECT_FALSE(agent.seen.hasLog("display mode to"));
}

TEST(DisplayModeAgentTest, KeepsTheModesOfTheParameter) {
  const auto server = support::XServer::dummy();
  Agent agent(server->display(), {{"RandR", "1500x700, nothing ,1500x701"}});
  agent.sync();
  EXPECT_EQ(agent.seen.reports, (Reports{"displayModesSupported 1", "displayModesUpdated"}));
  EXPECT_EQ(ownModes(*server), (Names{"1500x700_ruvo", "1500x701_ruvo"}));
  agent.connection->setParams({{"RandR", "1500x701,1500x702", 10}});
  agent.sync();
  EXPECT_EQ(ownModes(*server), (Names{"1500x701_ruvo", "1500x702_ruvo"}));
  agent.connection->setDisplayMode(1400, 700);
  agent.sync();
  EXPECT_EQ(ownModes(*server), (Names{"1400x700_ruvo", "1500x701_ruvo", "1500x702_ruvo"}));
  agent.connection->setDisplayMode(1500, 702);
  agent.connection->setParams({{"RandR", "", 10}});
  agent.sync();
  EXPECT_EQ(ownModes(*server), Names{"1500x702_ruvo"}) << "it is in use";
  EXPECT_EQ(agent.seen.reports.size(), 2u) << "changes are told once";
}

// Many resizes while one client draws and another one sets modes too.
TEST(DisplayModeAgentTest, ManyResizesOnABusyDesktop) {
  const auto server = support::XServer::dummy({{1024, 768, 0, 0}, {800, 600, 1024, 0}});
  Agent agent(server->display());
  agent.start();
  const test::TempDir directory;
  const std::string end = directory / "end";
  const auto meddler = server->start(
      {"sh", "-c",
       "while [ ! -e " + end +
           " ]; do xrandr --output DUMMY1 --mode 640x480 --pos 9x9;"
           "xrandr --newmode meddler 40 700 1300 1300 1300 500 805 805 805;"
           "xrandr --addmode DUMMY0 meddler; xrandr --output DUMMY0 --mode 800x600;"
           "xrandr --delmode DUMMY0 meddler; xrandr --rmmode meddler; done 2>/dev/null"});
  std::atomic<bool> stop = false;
  std::thread drawer([&] {
    Painter painter(*server);
    for (unsigned long i = 0; !stop; i++) painter.fill(rfb::Rect(0, 0, 900, 700), i * 77777);
  });
  for (uint32_t i = 0; i < 30; i++) {
    agent.connection->setDisplayMode(900 + i % 7, 700 + i % 5);
    agent.connection->fbUpdateRequest();
    agent.connection->process(0);
  }
  agent.sync();
  stop = true;
  drawer.join();
  std::ofstream(end).close();
  ASSERT_TRUE(meddler->wait());
  EXPECT_FALSE(agent.seen.hasLog("Unable to restore")) << agent.seen.logText();

  // The other client may have switched an output off whose mode was gone when it came to set it.
  server->run({"xrandr", "--output", "DUMMY0", "--mode", "1024x768", "--output", "DUMMY1", "--mode",
               "800x600"});
  for (const int height : {701, 702}) {
    agent.connection->setDisplayMode(901, static_cast<uint32_t>(height));
    expectScreen(agent, *server, 901, height);
    EXPECT_EQ(monitors(*server), std::vector<std::string>(2, name(901, height) + "+0+0"));
  }
  EXPECT_EQ(ownModes(*server), Names{"901x702_ruvo"});
  EXPECT_EQ(segmentsOf(agent.pid()), 1);
  EXPECT_FALSE(agent.seen.hasLog("X error")) << agent.seen.logText();
}

}  // namespace
