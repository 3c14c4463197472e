// The ways in which a server starts the program, and what it finds there.

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "agent/Agent.h"
#include "agent/SharedDisplay.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

namespace {

using support::Program;

class StartUpTest : public SharedDisplay {};

Program::Options programOptions(const std::string& display) {
  Program::Options options;
  options.captureOutput = options.captureErrors = true;
  options.environment = {{"DISPLAY", display}, {"HOME", "/nonexistent"}, {"LC_ALL", "C"}};
  return options;
}

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
  const struct {
    const char *all, *messages, *lang, *text;
  } cases[] = {
      {"de_DE.UTF-8", "", "", "Dieses Programm ist nicht für die direkte Ausführung vorgesehen.\n"},
      {"", "es_ES", "fr_FR", "Este programa no está diseñado para ejecutarse directamente.\n"},
      {"pt_BR", "de_DE", "de_DE", "Este programa não deve ser executado diretamente.\n"},
      {"it_IT.UTF-8", "", "", "This program is not intended to be run directly.\n"},
  };
  for (const auto& c : cases) {
    Program::Options options = programOptions(display());
    options.environment["LC_ALL"] = c.all;
    options.environment["LC_MESSAGES"] = c.messages;
    options.environment["LANG"] = c.lang;
    const Outcome outcome = run({"SERVICE", "-Locale=en_US"}, options);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.errors, c.text);
    EXPECT_EQ(outcome.output, "");
  }
}

TEST_F(StartUpTest, EndsWithoutADesktop) {
  const std::string usage =
      "ruvoagent " RUVO_VERSION "\nUsage: ruvoagent {service|user|virtual} [-";
  const std::string badHash = "-hash argument bad or missing\n";
  const std::string xml = "<?xml version=\"1.0\"?>\n<config>\n<bool   name=\"_Agent";
  const struct {
    std::vector<std::string> arguments;
    int status;
    std::string errors, output;  // the latter's beginning
  } cases[] = {
      {{}, 1, "This program is not intended to be run directly.\n", ""},
      {{"user", "-paramsxml", "-nonsense"}, 0, "", xml},
      {{"user"}, 1, "Bad command-line: got <null> instead of pipe name\n", ""},
      {{"user", "-fork", "-dummy"}, 1, "Bad command-line: got -dummy instead of pipe name\n", ""},
      {{"user", "-Fork", "7"}, 1, "Bad command-line: got -Fork instead of pipe name\n", ""},
      {{"user", "-hash", std::string(62, '0'), "7"}, 1, badHash, ""},
      {{"user", "-hash", std::string(65, '0'), "7"}, 1, badHash, ""},
      {{"user", "-hash", std::string(63, '0') + "g", "7"}, 1, badHash, ""},
      {{"user", "0"}, 1, "Pipe name '0' is not a connected stream socket\n", ""},
      {{"user", "99999999999999999999"},
       1,
       "Pipe name '99999999999999999999' is not an open descriptor\n",
       ""},
      {{"user", "1023"}, 1, "Pipe name '1023' is not an open descriptor\n", ""},
      {{"user", "-dummy", "/?"}, 0, "", usage},
      {{"user", "-dummy", "-help", "xml"}, 0, "", xml},
      {{"virtual", "-dummy", "-PollInterval", "0"},
       1,
       "Bad argument '-PollInterval'.  Run with -help for usage.\n",
       usage},
      {{"user", "-dummy", "-Locale=de_DE", "-PollInterval", "0"},
       1,
       "Ungültiges Argument „-PollInterval“.  Zur Anzeige der Verwendung mit -help ausführen.\n",
       "ruvoagent " RUVO_VERSION "\nVerwendung: "},
      {{"user", "-dummy", "-Monitor=\xFF"}, 1, "Bad UTF-8 string for Monitor\n", ""},
      {{"user", "-dummy"}, 1, "unable to open display \":9999\"\n", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.arguments));
    const Outcome outcome = run(c.arguments, programOptions(":9999"));
    EXPECT_EQ(outcome.status, c.status);
    EXPECT_EQ(outcome.errors, c.errors);
    EXPECT_TRUE(outcome.output.starts_with(c.output)) << outcome.output;
    EXPECT_EQ(outcome.output.empty(), c.output.empty());
  }
  const std::string help = run({"user", "-dummy", "-HELP", "all"}, programOptions(":9999")).output;
  for (const char* name : {"AgentAppX11", "SDesktopX11", "TXWindow", "TcpIo", "ruvoagent", "ipc"}) {
    EXPECT_NE(help.find(plat::format("\n  %s\n", name)), std::string::npos) << name;
  }
}

TEST_F(StartUpTest, NoFontIsAnError) {
  support::TempDir fonts;
  std::ofstream(fonts / "fonts.dir") << "0\n";
  const auto own = support::XServer::xvfb("64x48x24");
  const auto connection = own->connect();
  std::string path = fonts.path();
  char* paths[] = {path.data()};
  XSetFontPath(connection.get(), paths, 1);
  XSync(connection.get(), False);
  const Outcome outcome = run({"user", "-dummy"}, programOptions(own->display()));
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors, "Failed to load any font\n");
}

// Whether it is the channel's or the X connection's, it would never be polled.
TEST_F(StartUpTest, DescriptorsBeyondTheLimitOfSelectAreRefused) {
  const plat::FileDescriptor null(open("/dev/null", O_RDONLY | O_CLOEXEC));
  Program::Options options = programOptions(display());
  for (int fd = STDERR_FILENO + 1; fd <= 1024; ++fd) options.descriptors[fd] = null.get();
  for (const char* name : {"1024", "-dummy"}) {
    const Outcome outcome = run({"user", name}, options);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_TRUE(outcome.errors.ends_with(" is too large to wait for (limit 1023)\n"))
        << outcome.errors;
  }
}

TEST_F(StartUpTest, EveryChannelThatAServerCanOffer) {
  using Channel = host::LaunchOptions::Channel;
  const struct {
    Channel channel;
    bool useHash, fork;
  } cases[] = {{Channel::kDescriptor, false, true},
               {Channel::kNamedSocket, false, false},
               {Channel::kNamedSocket, true, false},
               {Channel::kNamedSocket, true, true}};
  for (const auto& c : cases) {
    host::LaunchOptions options = Agent::options(display());
    options.channel = c.channel;
    options.useHash = c.useHash;
    if (c.fork) options.pipeOptions = {"-fork"};
    host::AgentProcess process = host::AgentProcess::launch(options);
    plat::FileDescriptor channel = process.takeChannel();
    ucred peer{};
    socklen_t length = sizeof peer;
    getsockopt(channel.get(), SOL_SOCKET, SO_PEERCRED, &peer, &length);
    Recorder seen;
    host::AgentConnection connection(std::move(channel), &seen);
    ASSERT_TRUE(connection.processUntil([&] { return seen.greeted(); }, 10000));
    // The one that was forked leads a session of its own.
    if (c.channel == Channel::kNamedSocket) {
      EXPECT_EQ(peer.pid != process.pid(), c.fork);
      EXPECT_EQ(getsid(peer.pid) == peer.pid, c.fork);
    }
    connection.close();
    EXPECT_EQ(process.wait(10000), 0);
  }
  // One that ends before it connects is not waited for.
  host::LaunchOptions options = Agent::options(display());
  options.channel = Channel::kNamedSocket;
  options.pipeOptions = {"-hash", "zz"};
  EXPECT_EQ(support::thrownText([&] { host::AgentProcess::launch(options); }),
            "the agent ended with status 1 before it connected");
}

TEST_F(StartUpTest, WithoutAServerItRunsUntilASignal) {
  Program program({RUVO_AGENT, "user", "-dummy", "-CompactLog", "-Log=*:stderr:100"},
                  programOptions(display()));
  ASSERT_TRUE(support::waitFor(
      [&] { return program.errors().find("Discarding message") != std::string::npos; }));
  program.signal(SIGTERM);
  EXPECT_EQ(program.wait(), 0);
  EXPECT_NE(program.errors().find(" AgentAppX11: Got signal SIGTERM\n"), std::string::npos);
}

TEST_F(StartUpTest, ConfigurationDirectories) {
  support::TempDir home;
  for (const char* directory : {"config.d", "policy.d"}) {
    std::filesystem::create_directories(home / ".ruvo/" + directory);
  }
  std::ofstream(home / ".ruvo/config.d/common") << "PollInterval = 77\nUpdatePeriod=10\npoll=5\n";
  std::ofstream(home / ".ruvo/config.d/common.custom") << "UpdatePeriod=11\n_MaxGrabRects=3\n";
  std::ofstream(home / ".ruvo/policy.d/common") << "UpdatePeriod=12\n";  // users impose none

  host::LaunchOptions launch = Agent::options(display(), {{"poll", "6"}});
  launch.environment[0].second = home.path();
  Agent agent(launch);
  agent.sync();
  std::vector<std::string> settings;
  for (const host::LogLine& line : agent.seen.log) {
    if (line.level == 30 && line.source == "Configuration") settings.push_back(line.text);
  }
  EXPECT_EQ(settings,
            (std::vector<std::string>{"poll=6 (Preference)", "PollInterval=77 (Preference)",
                                      "UpdatePeriod=11 (Preference)"}));
  // The list is of the program's own defaults.
  Program::Options options = programOptions(display());
  options.environment["HOME"] = home.path();
  EXPECT_EQ(run({"user", "-paramsxml"}, options).output.find("priority=\"10\""), std::string::npos);
}

}  // namespace
