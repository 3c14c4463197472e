// Where the program's log lines go.

#include <filesystem>
#include <fstream>

#include "agent/RawAgent.h"
#include "agent/SharedDisplay.h"
#include "support/TempDir.h"

namespace {

using support::message;

std::string setParam(const std::string& name, const std::string& value, uint32_t priority) {
  return message("setParams",
                 support::shortString(name) + support::longString(value) + support::u32(priority));
}

class LogTest : public SharedDisplay {};

TEST_F(LogTest, TheServerChoosesLevels) {
  RawAgent agent(display());
  const auto setLevel = [](uint32_t level, const std::string& log) {
    return message("setLogLevel", support::u32(level) + support::shortString(log));
  };
  size_t all = 0;
  const struct {
    std::string bytes;
    bool none;
    bool fewer;
  } cases[] = {
      {"", false, false},
      {message("setLogLevel", support::u32(0)), true, true},
      {setLevel(30, "SServerAgent"), false, true},
      {setLevel(0, "*"), true, true},
      {setLevel(0xFFFFFFFF, ""), false, false},
      // One without a usable element changes nothing.
      {setParam("Log", "*:nowhere:0", 10), false, false},
      {setParam("Log", "*:stderr:0", 10), true, true},
      // The one that the program began with.
      {setParam("Log", "", 0), false, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.bytes));
    agent.send(c.bytes);
    agent.sync();
    // What the start of the desktop is worth to the log.
    agent.messages.clear();
    agent.send(message("start"));
    agent.sync();
    const size_t lines = agent.logs().size();
    if (c.bytes.empty()) all = lines;
    EXPECT_EQ(lines == 0, c.none) << testing::PrintToString(agent.logText(200));
    EXPECT_EQ(lines < all, c.fewer) << testing::PrintToString(agent.logText(200));
  }
}

TEST_F(LogTest, FilesFollowTheParameters) {
  support::TempDir home;
  host::LaunchOptions options =
      Agent::options(display(), {{"LogFile", "first.log"}, {"Log", "SServerAgent:file:30"}});
  options.environment[0].second = home.path();
  RawAgent agent(options);
  agent.sync();
  EXPECT_FALSE(std::filesystem::exists(home / ".ruvo/first.log"));
  agent.send(message("start"));
  agent.send(setParam("LogFile", home / "second.log", 10));
  agent.send(message("stop"));
  agent.sync();
  const std::pair<std::string, std::string> files[] = {
      {home / ".ruvo/first.log", "SServerAgent: Starting desktop"},
      {home / "second.log", "SServerAgent: Stopping desktop"}};
  for (const auto& [path, text] : files) {
    std::ifstream in(path);
    const std::string content{std::istreambuf_iterator<char>(in), {}};
    EXPECT_NE(content.find(text), content.npos) << content;
  }
}

}  // namespace
