#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>

#include <algorithm>
#include <fstream>
#include <limits>
#include <list>

#include "agent/SharedDisplay.h"
#include "host/AgentConnection.h"
#include "plat/FileDescriptor.h"
#include "ruvohost/Agent.h"
#include "ruvohost/Parameters.h"
#include "support/Frames.h"
#include "support/SocketPair.h"
#include "support/TempDir.h"

// The interface that servers in C++ use, with the real program.

namespace {

using ruvohost::Agent;
using ruvohost::Launch;
using ruvohost::Outcome;
using Result = Outcome::Result;

class HostTest : public SharedDisplay {
 protected:
  static Launch launch() {
    Launch launch;
    launch.agent = RUVO_AGENT;
    launch.display = display();
    launch.environment = {{"HOME", "/nonexistent"}, {"LC_ALL", "C"}};
    return launch;
  }
  static Outcome start(Agent& agent) {
    return agent.await([&](Agent::Answer answer) { agent.start(answer); });
  }
};

TEST_F(HostTest, RequestsAreAnswered) {
  struct : ruvohost::Listener {
    void refused(const ruvohost::Refusal& refusal) override { refusals.push_back(refusal.kind); }
    std::vector<ruvohost::Refusal::Kind> refusals;
  } listener;
  Agent agent(launch(), listener);
  ASSERT_TRUE(start(agent).isDone());
  const ruvohost::Framebuffer before = agent.framebuffer();
  EXPECT_EQ(before.rect(), (ruvohost::Rect{0, 0, 641, 480}));

  const auto resize = [&](uint32_t width, uint32_t height) {
    return agent.await([&](Agent::Answer answer) { agent.resize(width, height, answer); });
  };
  EXPECT_TRUE(resize(320, 200).isDone());
  EXPECT_EQ(agent.framebuffer().width(), 320);
  EXPECT_EQ(resize(40000, 200).result, Result::kRefused);
  EXPECT_TRUE(resize(641, 480).isDone());

  const auto parameter = [&](const char* name, const char* value) {
    return agent.await([&](Agent::Answer answer) {
                  agent.setParameters({{name, value}}, answer);
                })
        .text;
  };
  EXPECT_EQ(parameter("UpdatePeriod", "10"), "");
  EXPECT_EQ(parameter("NoSuch", "1"), "Unknown parameter 'NoSuch'");
  EXPECT_EQ(agent.await([&](Agent::Answer answer) { agent.selectMonitors("7", answer); }).result,
            Result::kRefused);
  using Kind = ruvohost::Refusal::Kind;
  EXPECT_EQ(listener.refusals,
            (std::vector<Kind>{Kind::kDisplaySize, Kind::kParameter, Kind::kMonitors}));

  // The former view is as it was, and ends where it did.
  EXPECT_EQ(before.width(), 641);
  EXPECT_EQ(before.row(479).size(), 641u * 4);
  EXPECT_EQ(before.rgba({600, 470, 9999, 9999}).size(), 41u * 10 * 4);
  EXPECT_THROW(before.row(480), ruvohost::Error);
  EXPECT_EQ(agent.finish(10000), 0);
  EXPECT_EQ(agent.await([&](Agent::Answer answer) { agent.sync(answer); }).result,
            Result::kDisconnected);
}

// A server with thousands of descriptors, several agents, and a loop of its own.
TEST_F(HostTest, ManyDescriptorsAndSeveralAgentsInOneLoop) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = 4096;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  std::vector<plat::FileDescriptor> taken(1100);
  for (plat::FileDescriptor& fd : taken) fd.reset(open("/dev/null", O_RDONLY | O_CLOEXEC));
  ruvohost::Listener nobody;
  std::list<Agent> agents;
  int started = 0;
  for (const auto channel : {Launch::Channel::kDescriptor, Launch::Channel::kNamedSocket}) {
    Launch how = launch();
    how.channel = channel;
    how.useHash = channel == Launch::Channel::kNamedSocket;
    Agent& agent = agents.emplace_back(how, nobody);
    EXPECT_GT(agent.fd(), FD_SETSIZE);
    agent.start([&](const Outcome& outcome) { started += outcome.isDone(); });
  }
  while (started < 2) {
    std::vector<pollfd> entries;
    int timeoutMs = 20000;
    for (Agent& agent : agents) {
      entries.push_back({agent.fd(), agent.events(), 0});
      if (agent.msUntilNext() >= 0) timeoutMs = std::min(timeoutMs, agent.msUntilNext());
    }
    poll(entries.data(), entries.size(), timeoutMs);
    for (Agent& agent : agents) agent.process();
  }
  for (Agent& agent : agents) EXPECT_EQ(agent.framebuffer().height(), 480);
}

TEST_F(HostTest, FailuresAreTold) {
  ruvohost::Listener nobody;
  Launch missing = launch();
  missing.agent = "/nonexistent/agent";
  EXPECT_THROW(Agent(missing, nobody), ruvohost::Error);
  Launch nowhere = launch();
  nowhere.display = ":nonexistent";
  const plat::FileDescriptor quiet(open("/dev/null", O_WRONLY | O_CLOEXEC));
  nowhere.standardError = quiet.get();
  Agent agent(nowhere, nobody);
  EXPECT_EQ(start(agent).result, Result::kDisconnected);
  EXPECT_EQ(agent.finish(10000), 1);
}

// An agent's user may have replaced it.
TEST(HostConnection, MapsNoBufferBeyondItsSegment) {
  const support::TempDir directory;
  const std::string file = directory / "segment";
  std::ofstream(file) << std::string(65536, 'x');
  const auto buffer = [&](int32_t x1, int32_t y1, int32_t x2, int32_t y2, uint32_t stride) {
    const std::string format("\x20\x18\0\1\0\xff\0\xff\0\xff\0\0\x10\x08\0\0", 16);
    std::string body = support::shortString("setPixelBuffer") + format;
    for (const int32_t edge : {x1, y1, x2, y2}) body += support::u32(static_cast<uint32_t>(edge));
    return support::framed(body + support::u32(stride) + std::string("\1\0", 2) +
                           support::u32(65536) + support::longString(file) + '\1' +
                           std::string(8, '\0'));
  };
  const int32_t least = std::numeric_limits<int32_t>::min();
  const int32_t most = std::numeric_limits<int32_t>::max();
  const struct {
    std::string message;
    bool fits;
  } cases[] = {{buffer(0, 0, 128, 128, 128), true},
               {buffer(0, 0, 128, 129, 128), false},
               {buffer(0, 0, 128, 128, 127), false},
               // 4 * stride * height is 65536 modulo 2^64.
               {buffer(0, 0, 128, 1073758208, 4294901761), false},
               {buffer(0, least, 128, most, 128), false},
               {buffer(least, 0, most, 128, 0xffffffff), false}};
  for (const auto& c : cases) {
    support::SocketPair pair;
    host::AgentConnection connection(std::move(pair.ours), nullptr);
    pair.put(c.message);
    connection.processUntil([&] { return connection.pixelBuffer().stride != 0; }, 5000);
    EXPECT_EQ(connection.pixels() != nullptr, c.fits) << connection.pixelBuffer().rect.str();
  }
}

TEST(HostParameters, AreWhatTheAgentDeclares) {
  const std::vector<ruvohost::Parameter> all = ruvohost::parametersOf(RUVO_AGENT);
  const auto check = [&](const char* name, const char* value) {
    const ruvohost::Parameter* parameter = ruvohost::findParameter(all, name);
    return parameter ? parameter->check(value) : name;
  };
  EXPECT_EQ(check("updateperiod", "25"), "");
  EXPECT_EQ(check("UpdatePeriod", "soon"), "UpdatePeriod: 'soon' is no number");
  EXPECT_EQ(check("CaptureMethod", "3"), "CaptureMethod: '3' is not between 0 and 2");
  EXPECT_EQ(check("EnableClipboard", "maybe"), "EnableClipboard: 'maybe' is neither 1 nor 0");
  EXPECT_THROW(ruvohost::parametersOf("/bin/true"), ruvohost::Error);
}

}  // namespace
