// The bytes on the channel, as a server that is not ours would see and send them.

#include <csignal>

#include "agent/RawAgent.h"
#include "agent/SharedDisplay.h"
#include "plat/Exception.h"

namespace {

using support::longString;
using support::message;
using support::shortString;
using support::u16;
using support::u32;

using Names = std::vector<std::string>;

std::string parameter(const std::string& name, const std::string& value, uint32_t priority) {
  return shortString(name) + longString(value) + u32(priority);
}

// The payload in frames of the given length, each behind an empty one.
std::string inFramesOf(size_t length, const std::string& payload) {
  std::vector<size_t> cuts;
  for (size_t at = 0; at < payload.size(); at += length) cuts.insert(cuts.end(), 2, at);
  return support::framed(payload, cuts);
}

class WireTest : public SharedDisplay {};

TEST_F(WireTest, GreetingComesFirst) {
  const struct {
    const char* screen;
    std::string rect;
    std::string format;
  } cases[] = {
      {"641x480x24", u32(0) + u32(0) + u32(641) + u32(480),
       u32(0x20180001) + u16(255) + u16(255) + u16(255) + u16(0) + u32(0x10080000)},
      {"320x200x16", u32(0) + u32(0) + u32(320) + u32(200),
       u32(0x10100001) + u16(31) + u16(63) + u16(31) + u16(0) + u32(0x0B050000)},
      {"64x48x8", u32(0) + u32(0) + u32(64) + u32(48), u32(0x08080000) + std::string(12, '\0')},
  };
  for (const auto& c : cases) {
    const auto own = support::XServer::xvfb(c.screen);
    RawAgent agent(own->display());
    agent.sync();
    const std::string greeting =
        message("init", u32(0x7CCA9ECB)) + message("initRectAndPf", c.rect + c.format);
    EXPECT_EQ(agent.bytes().substr(0, greeting.size()), greeting) << c.screen;
    const std::string log = message(
        "logMsg", u32(100) + shortString("Configuration") + longString("CompactLog=0 (Default)"));
    EXPECT_NE(agent.bytes().find(log), std::string::npos);
  }
}

TEST_F(WireTest, EveryMessageIsReadOrLeftBehind) {
  const std::string keyEvent = shortString("keyEvent") + u32(0xFFE1) + '\1';
  const std::string keyUp = shortString("keyEvent") + u32(0xFFE1) + '\0';
  const std::string endOfMsg = "0 FdIo: Server: End of message";
  const std::string dataLeft = "0 FdIo: Server: FramedInStream::endMsg: data left in msg";
  const std::string large(3000000, 'x');
  const struct {
    std::string bytes;
    std::vector<RawAgent::Message> answers;
    Names errors;
  } cases[] = {
      {message("nosuch", "body"), {{"badMsg", shortString("nosuch")}}, {}},
      {message(std::string(255, 'n')), {{"badMsg", shortString(std::string(255, 'n'))}}, {}},
      {inFramesOf(32767, shortString("large") + large), {{"badMsg", shortString("large")}}, {}},
      {inFramesOf(1, keyEvent) + inFramesOf(3, keyUp), {}, {}},
      {inFramesOf(1, shortString("setParams") + parameter("Monitor", "1", 10) +
                         parameter("Monitor", "", 0)),
       {},
       {}},
      {inFramesOf(32767, shortString("clientCutText") + longString(large)), {}, {}},
      {"\x80" + std::string(1, '\0'), {}, {endOfMsg}},
      {support::framed("\5ab"), {}, {endOfMsg}},
      {message("keyEvent", u32(1)), {}, {endOfMsg}},
      {message("clientCutText", u32(0x7FFFFFFF) + "short"), {}, {endOfMsg}},
      {message("stop", "x"), {}, {dataLeft}},
      {message("setParams", shortString("Monitor") + u32(1025)),
       {},
       {"0 FdIo: Server: String exceeds maximum length"}},
      {message("badMsg", shortString("init")),
       {},
       {"0 FdIo: Server: Peer reports bad msg name 'init'",
        "0 FdIo: Server: MsgIpc: expected message <null>, peer reports bad msg name 'init'"}},
  };
  RawAgent agent(display());
  agent.sync();
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.bytes.substr(0, 40)));
    agent.messages.clear();
    // Short ones come byte by byte.
    const size_t step = c.bytes.size() < 100 ? 1 : c.bytes.size();
    for (size_t at = 0; at < c.bytes.size(); at += step) agent.send(c.bytes.substr(at, step));
    agent.sync();
    EXPECT_EQ(agent.logText(), c.errors);
    std::erase_if(agent.messages, [](const RawAgent::Message& m) {
      return m.name == "logMsg" || m.name == "setCursorPos" || m.name == "localInput";
    });
    EXPECT_EQ(agent.messages, c.answers);
  }
}

TEST_F(WireTest, ChannelMayEndAnywhere) {
  const std::string bytes = message("start") + message("clientCutText", longString("text")) +
                            message("setParams", parameter("Monitor", "1", 10), {5, 20});
  for (size_t length = 0; length <= bytes.size(); length += 6) {
    SCOPED_TRACE(length);
    RawAgent agent(display());
    agent.send(bytes.substr(0, length));
    agent.hangUp();
    EXPECT_EQ(agent.exitStatus(), 0);
    EXPECT_EQ(agent.errors(), "");
  }
}

// The one assertion that a server can reach: it is told before the end.
TEST_F(WireTest, NegativeLengthIsFatal) {
  const std::string line = "Assertion failed: len >= 0 (libs/svr/SServerAgent)";
  RawAgent agent(display());
  agent.sync();
  agent.send(message("clientCutText", u32(0x80000000)));
  EXPECT_EQ(agent.exitStatus(), 128 + SIGABRT);
  EXPECT_EQ(agent.errors(), line + "\n");
  EXPECT_EQ(agent.logText(), Names{"0 Assertion: " + line});
}

TEST_F(WireTest, LogTextsAreCutBetweenCharacters) {
  const std::string before = "Bad default for parameter 'Monitor': '";
  const std::string value = std::string(1024 - before.size() - 1, 'm') + "\u00E9";
  RawAgent agent(display());
  agent.sync();
  for (const std::string& text : {value, value.substr(1)}) {
    agent.messages.clear();
    agent.send(message("setParams", parameter("Monitor", text + "\u00E9", 0)));
    agent.sync();
    EXPECT_EQ(agent.logs().back().text, (before + text).substr(0, text == value ? 1023 : 1024));
  }
}

TEST_F(WireTest, LinesForAServerThatDoesNotReadAreLimited) {
  RawAgent agent(display());
  agent.sync();
  agent.messages.clear();
  // Fills the channel towards us until the agent, too, has output that it cannot write.
  for (int i = 0; i < 4000; ++i) agent.send(message(std::string(200, 'q')));
  for (int i = 0; i < 3000; ++i) {
    agent.send(message("setParams", parameter("unknown" + std::to_string(i), "", 10)));
  }
  Names lines;
  ASSERT_TRUE(agent.readUntil([&] { return (lines = agent.logText()).size() >= 1002; }));
  EXPECT_EQ(lines[1000], "0 SServerAgent: Unknown parameter 'unknown1000'");
  const std::string notice = "0 LogDestIpc: Too many messages, discarding further ones";
  EXPECT_EQ(lines[1001], notice);

  // What comes once they have been sent is reported again.
  agent.send(message("setParams", parameter("later", "", 10)));
  ASSERT_TRUE(agent.readUntil([&] {
    lines = agent.logText();
    return lines.back() == "0 SServerAgent: Unknown parameter 'later'";
  }));
  EXPECT_EQ(std::count(lines.begin(), lines.end(), notice), 1);
}

TEST_F(WireTest, ServerThatNeverReadsIsGivenUp) {
  const struct {
    std::pair<std::string, std::string> parameter;
    const char* reason;
  } cases[] = {
      {{"LazyFlushTimeout", "1"}, "FdIo: Server: Timed out\n"},
      {{"MaxOutBufferSize", "16384"},
       "FdIo: Server: BufferedOutStream overrun: buffer size exceeded\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.parameter.first);
    RawAgent agent(display(), {c.parameter, {"Log", "*:stderr:30"}});
    const std::string question = message(std::string(200, 'q'));
    EXPECT_TRUE(support::waitFor([&] {
      // Whole messages, as far as the agent takes them.
      while (agent.sendSome(question) > 0) {
      }
      return !agent.isRunning();
    }));
    EXPECT_EQ(agent.exitStatus(), 0);
    EXPECT_NE(agent.errors().find(c.reason), std::string::npos);
    EXPECT_NE(agent.errors().find("AgentServerX11: Quitting on server disconnect\n"),
              std::string::npos);
  }
}

}  // namespace
