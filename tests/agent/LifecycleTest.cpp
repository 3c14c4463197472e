#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "agent/Agent.h"
#include "support/TempDir.h"

namespace {

// What an agent keeps outside its own memory while the desktop is started.
struct Traces {
  plat::SharedMemDescriptor segment;

  std::string lockFile() const {
    const std::string directory = plat::format("/tmp/.ruvo-%u/shm/", geteuid());
    return segment.kind == plat::SharedMemDescriptor::Kind::kSysV
               ? directory + "SysV/" + std::to_string(segment.id)
               : directory + "Posix" + segment.name.str();
  }
  bool segmentExists() const {
    if (segment.kind == plat::SharedMemDescriptor::Kind::kPosix) {
      return std::filesystem::exists("/dev/shm" + segment.name.str());
    }
    shmid_ds status;
    return shmctl(segment.id, IPC_STAT, &status) == 0;
  }
  bool any() const { return segmentExists() || std::filesystem::exists(lockFile()); }
  bool all() const { return segmentExists() && std::filesystem::exists(lockFile()); }
};

Traces tracesOf(Agent& agent) {
  return {agent.connection->pixelBuffer().segment};
}

const Agent::Parameters kKinds[] = {{}, {{"_UseXShm", "0"}}};

TEST(LifecycleTest, EveryEndLeavesNothing) {
  const struct {
    const char* log;
    std::function<void(Agent&, support::XServer&)> act;
    int status;
  } cases[] = {
      {"Got signal SIGTERM", [](Agent& a, support::XServer&) { a.signal(SIGTERM); }, 0},
      {"Got signal SIGHUP", [](Agent& a, support::XServer&) { a.signal(SIGHUP); }, 0},
      {"Got signal SIGINT", [](Agent& a, support::XServer&) { a.signal(SIGINT); }, 0},
      {"", [](Agent& a, support::XServer&) { a.disconnect(); }, 0},
      {"Stopping desktop",
       [](Agent& a, support::XServer&) {
         a.connection->stop();
         a.sync();
         a.signal(SIGTERM);
       },
       0},
      {"Lost connection to X display", [](Agent&, support::XServer& s) { s.stop(true); }, 1},
  };
  for (const Agent::Parameters& kind : kKinds) {
    for (const auto& c : cases) {
      SCOPED_TRACE(c.log);
      const auto server = support::XServer::xvfb("641x480x24");
      Agent agent(server->display(), kind);
      agent.start();
      const Traces traces = tracesOf(agent);
      EXPECT_TRUE(traces.all());
      c.act(agent, *server);
      EXPECT_EQ(agent.exitStatus(), c.status);
      EXPECT_TRUE(agent.seen.hasLog(c.log)) << agent.seen.logText();
      agent.disconnect();  // a segment stays as long as we have it mapped
      EXPECT_FALSE(traces.any());
    }
  }
}

TEST(LifecycleTest, TheNextAgentCleansUpAfterAKilledOne) {
  const auto server = support::XServer::xvfb("641x480x24");
  for (const Agent::Parameters& kind : kKinds) {
    // The agents of other tests clean up as well: until it was ours that did.
    bool cleaned = false;
    for (int attempt = 0; attempt < 20 && !cleaned; ++attempt) {
      Traces traces;
      {
        Agent agent(server->display(), kind);
        agent.start();
        traces = tracesOf(agent);
        EXPECT_TRUE(traces.all());
        agent.signal(SIGKILL);
        EXPECT_EQ(agent.exitStatus(), 128 + SIGKILL);
      }
      Agent next(server->display(), kind);
      next.start();
      cleaned = next.seen.hasLog("Cleaning old shared memory", 100);
      EXPECT_FALSE(traces.any());
      EXPECT_TRUE(tracesOf(next).all());
    }
    EXPECT_TRUE(cleaned);
  }
}

TEST(LifecycleTest, SegmentsBelongToTheServersUser) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  const auto server = support::XServer::xvfb("641x480x24");
  for (const Agent::Parameters& kind : kKinds) {
    Agent agent(server->display(), kind);
    agent.connection->setXServerOwner(uint64_t{7} << 32 | 12345, 54321);
    agent.start();
    const plat::SharedMemDescriptor segment = tracesOf(agent).segment;
    ipc_perm owner{};
    if (segment.kind == plat::SharedMemDescriptor::Kind::kPosix) {
      struct stat status {};
      ASSERT_EQ(stat(("/dev/shm" + segment.name.str()).c_str(), &status), 0);
      owner.uid = status.st_uid;
      owner.gid = status.st_gid;
      owner.mode = status.st_mode;
    } else {
      shmid_ds status{};
      ASSERT_EQ(shmctl(segment.id, IPC_STAT, &status), 0);
      owner = status.shm_perm;
    }
    EXPECT_EQ(owner.uid, 12345u);
    EXPECT_EQ(owner.gid, 54321u);
    EXPECT_EQ(owner.mode & 0777, 0600u);
  }
}

TEST(LifecycleTest, AFailedStartCanBeRepeated) {
  // The agent may not make files as large as the screen.
  const support::TempDir directory;
  const auto server = support::XServer::xvfb("641x480x24");
  host::LaunchOptions options = Agent::options(server->display(), {{"_UseXShm", "0"}});
  options.agent = agentScript(directory, "trap '' XFSZ; ulimit -f 1000");
  Agent agent(options);

  const auto failed = [&] {
    return agent.seen.failure.starts_with("[SystemException] ftruncate(");
  };
  agent.connection->start();
  ASSERT_TRUE(agent.waitFor(failed)) << agent.seen.logText();
  agent.connection->fbUpdateRequest();
  agent.sync();
  EXPECT_TRUE(agent.seen.buffers.empty());

  addMode(*server, "320x240");
  server->run({"xrandr", "--output", "screen", "--mode", "320x240"});
  agent.start();
  const rfb::Rect small(0, 0, 320, 240);
  EXPECT_EQ(agent.connection->pixelBuffer().rect, small);

  // A buffer that cannot grow with the screen stays.
  const Traces traces = tracesOf(agent);
  agent.seen.failure.clear();
  const size_t published = agent.seen.buffers.size();
  server->run({"xrandr", "--output", "screen", "--mode", "641x480"});
  ASSERT_TRUE(agent.waitFor(failed)) << agent.seen.logText();
  EXPECT_GT(agent.seen.buffers.size(), published);
  EXPECT_EQ(agent.connection->pixelBuffer().segment.name, traces.segment.name);
  EXPECT_TRUE(traces.all());
  server->run({"xrandr", "--output", "screen", "--mode", "320x240"});
  const auto renewed = [&] {
    return agent.connection->pixelBuffer().segment.name != traces.segment.name;
  };
  ASSERT_TRUE(agent.waitFor(renewed));
  agent.sync();
  EXPECT_EQ(agent.connection->pixelBuffer().rect, small);
  EXPECT_TRUE(tracesOf(agent).all());
  EXPECT_FALSE(traces.any());
}

}  // namespace
