// The ways in which a server starts the program, and what it finds there.

#include <fcntl.h>
#include <mbedtls/md.h>
#include <sys/resource.h>
#include <sys/un.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <fstream>

#include "agent/RawAgent.h"
#include "plat/Exception.h"
#include "plat/Hex.h"
#include "support/TempDir.h"
#include "support/XServer.h"

namespace {

using support::Program;

class StartUpTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { server_ = support::XServer::xvfb("641x480x24"); }
  static void TearDownTestSuite() { server_.reset(); }
  static const std::string& display() { return server_->display(); }

 private:
  static std::unique_ptr<support::XServer> server_;
};

std::unique_ptr<support::XServer> StartUpTest::server_;

// The end of a run without a channel.
struct Outcome {
  int status;
  std::string errors;
  std::string output;
};
Outcome run(std::vector<std::string> arguments, const Program::Options& options) {
  arguments.insert(arguments.begin(), RUVO_AGENT);
  Program program(arguments, options);
  const int status = program.wait(support::Milliseconds(20000)).value_or(-1);
  return {status, program.errors(), program.output()};
}

TEST_F(StartUpTest, RefusesInTheUsersLanguage) {
  const std::string german = "Dieses Programm ist nicht für die direkte Ausführung vorgesehen.\n";
  const std::string spanish = "Este programa no está diseñado para ejecutarse directamente.\n";
  const std::string french = "Ce programme n'est pas conçu pour être exécuté directement.\n";
  const std::string portuguese = "Este programa não deve ser executado diretamente.\n";
  const std::string english = "This program is not intended to be run directly.\n";
  const struct {
    const char* all;
    const char* messages;
    const char* lang;
    std::string text;
  } cases[] = {
      {"de_DE.UTF-8", "", "", german},  {"", "es_ES", "fr_FR", spanish},
      {"", "", "fr_FR.UTF-8", french},  {"pt_BR", "de_DE", "de_DE", portuguese},
      {"it_IT.UTF-8", "", "", english}, {"", "", "", english},
  };
  for (const auto& c : cases) {
    Program::Options options = RawAgent::programOptions(display());
    options.environment["LC_ALL"] = c.all;
    options.environment["LC_MESSAGES"] = c.messages;
    options.environment["LANG"] = c.lang;
    const Outcome outcome = run({"SERVICE", "-Locale=en_US"}, options);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.errors, c.text);
    EXPECT_EQ(outcome.output, "");
  }
}

TEST_F(StartUpTest, FailuresReachTheLauncher) {
  const struct {
    std::vector<std::string> arguments;
    const char* display;
    std::string errors;
    bool showsUsage;
  } cases[] = {
      {{"user", "-dummy"}, ":9999", "unable to open display \":9999\"\n", false},
      {{"user", "-dummy", "-Monitor=\xFF"}, ":9999", "Bad UTF-8 string for Monitor\n", false},
      {{"user", "-dummy", "--LogDir", "/tmp"},
       ":9999",
       "Bad argument '--LogDir'.  Run with -help for usage.\n",
       true},
      {{"user", "-hash", "12", "name"}, ":9999", "-hash argument bad or missing\n", false},
      {{"user", "-fork", "-dummy"},
       ":9999",
       "Bad command-line: got -dummy instead of pipe name\n",
       false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.arguments));
    const Outcome outcome = run(c.arguments, RawAgent::programOptions(c.display));
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.errors, c.errors);
    EXPECT_EQ(!outcome.output.empty(), c.showsUsage);
  }
}

TEST_F(StartUpTest, NoFontIsAnError) {
  test::TempDir fonts;
  std::ofstream(fonts / "fonts.dir") << "0\n";
  const auto server = support::XServer::xvfb("64x48x24");
  const auto connection = server->connect();
  std::string path = fonts.path();
  char* paths[] = {path.data()};
  XSetFontPath(connection.get(), paths, 1);
  XSync(connection.get(), False);
  const Outcome outcome = run({"user", "-dummy"}, RawAgent::programOptions(server->display()));
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors, "Failed to load any font\n");
}

TEST_F(StartUpTest, DescriptorsBeyondTheLimitOfSelectAreRefused) {
  Program::Options options = RawAgent::programOptions(display());
  rlimit limit;
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  if (limit.rlim_cur <= 1024) GTEST_SKIP() << "needs more descriptors";
  const plat::FileDescriptor fd(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 1024));
  ASSERT_TRUE(fd);
  options.descriptors = {{fd.get(), fd.get()}};
  const Outcome outcome = run({"user", std::to_string(fd.get())}, options);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors,
            plat::format("Descriptor %d is too large to wait for (limit 1023)\n", fd.get()));
}

// The next descriptor opened would take the place of standard error, so that the X server would get
// to read what is written there.
TEST_F(StartUpTest, StandardErrorMayBeClosed) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  plat::FileDescriptor ours(ends[0]);
  plat::FileDescriptor theirs(ends[1]);
  Program::Options options = RawAgent::programOptions(display());
  options.descriptors = {{ends[1], ends[1]}};
  const std::string command = plat::format("exec 2>&-; exec '%s' user %d", RUVO_AGENT, ends[1]);
  RawAgent agent(std::make_unique<Program>(std::vector<std::string>{"sh", "-c", command}, options),
                 std::move(ours));
  theirs.reset();
  agent.sync();
  agent.send(test::message(
      "setParams",
      test::shortString("Log") + test::longString("*:ipc:100,*:nosuch:1") + test::u32(10)));
  agent.send(test::message("start"));
  agent.sync();
  const std::vector<std::string> names = agent.names();
  EXPECT_NE(std::find(names.begin(), names.end(), "setPixelBuffer"), names.end());
  EXPECT_EQ(agent.logText(), std::vector<std::string>());
  agent.hangUp();
  EXPECT_EQ(agent.exitStatus(), 0);
}

// A socket that the agent is to connect to.
class Listener {
 public:
  Listener() : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path().copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(bind(fd_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(listen(fd_.get(), 1), 0);
  }
  std::string path() const { return directory_ / "agent"; }
  plat::FileDescriptor accept() {
    return plat::FileDescriptor(accept4(fd_.get(), nullptr, nullptr, SOCK_CLOEXEC));
  }

 private:
  test::TempDir directory_;
  plat::FileDescriptor fd_;
};

std::string hashOf(const std::string& secret) {
  std::array<unsigned char, 32> hash;
  EXPECT_EQ(
      mbedtls_md(mbedtls_md_info_from_type(MBEDTLS_MD_SHA256),
                 reinterpret_cast<const unsigned char*>(secret.data()), secret.size(), hash.data()),
      0);
  return plat::hexEncode(hash.data(), hash.size());
}

TEST_F(StartUpTest, NamedSockets) {
  const std::string secret = "0123456789ABCDEF0123456789abcdef";
  const struct {
    std::vector<std::string> options;
    std::string sent;
    bool accepted;
  } cases[] = {
      {{}, "", true},
      {{"-hash", hashOf(secret)}, secret, true},
      {{"-hash", hashOf(secret), "-fork"}, secret, true},
      {{"-hash", hashOf(secret + "x")}, secret, false},
      {{"-hash", hashOf(secret)}, secret.substr(1), false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.options));
    Listener listener;
    std::vector<std::string> arguments{RUVO_AGENT, "user"};
    arguments.insert(arguments.end(), c.options.begin(), c.options.end());
    arguments.insert(arguments.end(), {listener.path(), "-Log=*:nosuch:1"});
    auto program = std::make_unique<Program>(arguments, RawAgent::programOptions(display()));
    RawAgent agent(std::move(program), listener.accept());
    agent.send(c.sent);
    if (c.accepted) {
      agent.sync();
      EXPECT_EQ(agent.names().front(), "init");
      // The one that was forked leads a session of its own.
      const bool forked = agent.peer() != agent.program().pid();
      EXPECT_EQ(forked, !c.options.empty() && c.options.back() == "-fork");
      EXPECT_EQ(getsid(agent.peer()) == agent.peer(), forked);
      agent.hangUp();
    } else {
      agent.endOutput();
    }
    EXPECT_EQ(agent.exitStatus(), c.accepted ? 0 : 1);
    EXPECT_TRUE(c.accepted || agent.bytes().empty());
    // Nobody is there to read it.
    EXPECT_EQ(agent.program().errors(), "");
  }
}

TEST_F(StartUpTest, ConfigurationDirectories) {
  test::TempDir home;
  const auto write = [&](const std::string& name, const std::string& content) {
    std::filesystem::create_directories(home / ".ruvo/config.d");
    std::filesystem::create_directories(home / ".ruvo/policy.d");
    std::ofstream(home / ".ruvo/" + name) << content;
  };
  write("config.d/common", "PollInterval = 77\r\n# remark\nUpdatePeriod=10\nno value\n");
  write("config.d/common.custom", "UpdatePeriod=11\npoll=5\n_MaxGrabRects=3\n");
  write("policy.d/common", "UpdatePeriod=12\n");  // users impose none
  const std::map<std::string, std::string> environment{{"HOME", home.path()}};

  RawAgent agent(display(), {"-poll", "6"}, environment);
  agent.sync();
  const std::vector<std::string> log = agent.logText(100);
  for (const std::string& line :
       {"30 FileConfig: Reading common config from " + (home / ".ruvo/config.d"),
        "0 FileConfig: Bad line 4 in " + (home / ".ruvo/config.d/common"),
        "30 FileConfig: Reading common.custom config from " + (home / ".ruvo/config.d"),
        std::string("30 Configuration: poll=6 (Preference)"),
        std::string("30 Configuration: PollInterval=77 (Preference)"),
        std::string("30 Configuration: UpdatePeriod=11 (Preference)")})
    EXPECT_NE(std::find(log.begin(), log.end(), line), log.end()) << line;
  for (const std::string& line : log) EXPECT_EQ(line.find("=3 (Pref"), line.npos) << line;

  // The list is of the program's own defaults.
  Program::Options options = RawAgent::programOptions(display());
  const Outcome without = run({"user", "-paramsxml"}, options);
  options.environment["HOME"] = home.path();
  const Outcome with = run({"user", "-paramsxml", "-poll", "6"}, options);
  EXPECT_EQ(with.status, 0);
  EXPECT_EQ(with.output, without.output);
}

}  // namespace
