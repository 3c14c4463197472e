#include <iterator>
#include <set>
#include <sstream>

#include "agent/Agent.h"

namespace {

using Names = std::set<std::string>;
using Outputs = std::vector<support::XServer::Output>;

class ResizeTest : public testing::Test {
 protected:
  void begin(const Outputs& outputs, const Agent::Parameters& parameters = {}) {
    agent_.reset();
    server_ = support::XServer::dummy(outputs);
    agent_ = std::make_unique<Agent>(server_->display(), parameters);
    agent_->start();
    EXPECT_EQ(agent_->seen.count("displayModesSupported"), 1);
    EXPECT_TRUE(agent_->seen.areModesSupported);
  }
  // What xrandr says, word by word.
  std::multiset<std::string> words() const {
    std::istringstream text(server_->run({"xrandr"}));
    return {std::istream_iterator<std::string>(text), {}};
  }
  // The modes that agents have made.
  Names ownModes() const {
    Names names;
    for (const std::string& word : words()) {
      if (word.ends_with("_ruvo")) names.insert(word);
    }
    return names;
  }
  void setParam(const char* sizes) { agent_->connection->setParams({{"RandR", sizes, 10}}); }
  // All monitors show all of the resized screen, and it is captured as it looks.
  void resize(int width, int height, size_t monitors) {
    const std::string size = plat::format("%dx%d", width, height);
    SCOPED_TRACE(size);
    agent_->connection->setDisplayMode(static_cast<uint32_t>(width), static_cast<uint32_t>(height));
    const rfb::Rect rect(0, 0, width, height);
    ASSERT_TRUE(agent_->waitFor([&] { return agent_->connection->pixelBuffer().rect == rect; }))
        << agent_->seen.logText();
    agent_->sync();
    EXPECT_EQ(words().count(size + "+0+0"), monitors);
    EXPECT_EQ(agent_->seen.monitors.back().monitors.size(), monitors);
    Painter painter(*server_);
    painter.fill(rect, 0x336699);
    const rfb::Rect corner(width - 7, height - 5, width, height);
    painter.fill(corner, static_cast<unsigned long>(width * 7 + height));
    EXPECT_TRUE(agent_->updateUntilChanged(corner));
    EXPECT_EQ(painter.difference(*agent_->connection), "");
  }

  std::unique_ptr<support::XServer> server_;
  std::unique_ptr<Agent> agent_;
};

TEST_F(ResizeTest, OneAndFourMonitors) {
  // Clones, overlapping ones, and one that nothing touches.
  const Outputs four = {
      {1024, 768, 0, 0}, {1024, 768, 0, 0}, {800, 600, 500, 300}, {640, 480, 2000, 1000}};
  for (const Outputs& outputs : {Outputs{{1024, 768, 0, 0}}, four}) {
    begin(outputs);
    for (const auto& [width, height, mode] : {std::tuple(1280, 1024, ""),
                                              {1601, 901, "1601x901_ruvo"},
                                              {64, 64, "64x64_ruvo"},
                                              {3840, 2160, "3840x2160_ruvo"},
                                              {800, 600, "3840x2160_ruvo"}}) {
      resize(width, height, outputs.size());
      EXPECT_EQ(ownModes(), *mode ? Names{mode} : Names{});
    }
    for (const char* line :
         {"Setting display mode to 1601x901", "Added mode 1601x901_ruvo to 16 outputs",
          "Deleted mode 1601x901_ruvo from 16 outputs"}) {
      EXPECT_TRUE(agent_->seen.hasLog(line, 30)) << line;
    }
    EXPECT_FALSE(agent_->seen.hasLog("Unable"));
    EXPECT_EQ(agent_->seen.count("displayModesUpdated"), 1);
  }
}

TEST_F(ResizeTest, KeepsTheModesOfTheParameter) {
  begin({{1024, 768, 0, 0}, {800, 600, 1024, 0}}, {{"RandR", "1500x700, nothing ,1500x701"}});
  EXPECT_EQ(ownModes(), (Names{"1500x700_ruvo", "1500x701_ruvo"}));
  setParam("1500x701,1500x702");
  resize(1400, 700, 2);
  EXPECT_EQ(ownModes(), (Names{"1400x700_ruvo", "1500x701_ruvo", "1500x702_ruvo"}));
  // A mode that one monitor lacks.
  server_->run({"xrandr", "--delmode", "DUMMY1", "1500x702_ruvo"});
  resize(1500, 702, 2);
  setParam("");
  agent_->sync();
  EXPECT_EQ(ownModes(), Names{"1500x702_ruvo"}) << "it is in use";
  EXPECT_EQ(agent_->seen.count("displayModesUpdated"), 1) << "changes are told once";
}

}  // namespace
