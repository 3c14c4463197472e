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

std::string run(std::vector<std::string> arguments, const Program::Options& options) {
  arguments.insert(arguments.begin(), RUVO_AGENT);
  return outcomeOf(arguments, options);
}

TEST_F(StartUpTest, RefusesInTheUsersLanguage) {
  Program::Options options = programOptions(display());
  options.environment["LANG"] = "fr_FR";
  options.environment["LC_MESSAGES"] = "es_ES";
  for (const auto& [all, text] :
       {std::pair("de_DE.UTF-8",
                  "Dieses Programm ist nicht für die direkte Ausführung vorgesehen.\n"),
        {"", "Este programa no está diseñado para ejecutarse directamente.\n"},
        {"it_IT.UTF-8", "This program is not intended to be run directly.\n"}}) {
    options.environment["LC_ALL"] = all;
    EXPECT_EQ(run({"SERVICE", "-Locale=en_US"}, options), std::string("1 |") + text);
  }
}

TEST_F(StartUpTest, EndsWithoutADesktop) {
  const std::string usage =
      "ruvoagent " RUVO_VERSION "\nUsage: ruvoagent {service|user|virtual} [-";
  const std::string badHash = "-hash argument bad or missing\n";
  const std::string xml = "<?xml version=\"1.0\"?>\n<config>\n<bool   name=\"_Agent";
  const struct {
    std::vector<std::string> arguments;
    std::string begin, errors;
  } cases[] = {
      {{}, "1 |", "This program is not intended to be run directly.\n"},
      {{"user", "-paramsxml", "-nonsense"}, "0 " + xml, ""},
      {{"user"}, "1 |", "Bad command-line: got <null> instead of pipe name\n"},
      {{"user", "-Fork", "7"}, "1 |", "Bad command-line: got -Fork instead of pipe name\n"},
      {{"user", "-hash", std::string(65, '0'), "7"}, "1 |", badHash},
      {{"user", "-hash", std::string(63, '0') + "g", "7"}, "1 |", badHash},
      {{"user", "0"}, "1 |", "Pipe name '0' is not a connected stream socket\n"},
      {{"user", "99999999999999999999"},
       "1 |",
       "Pipe name '99999999999999999999' is not an open descriptor\n"},
      {{"user", "-dummy", "/?"}, "0 " + usage, ""},
      {{"user", "-dummy", "-help", "xml"}, "0 " + xml, ""},
      {{"virtual", "-dummy", "-PollInterval", "0"},
       "1 " + usage,
       "Bad argument '-PollInterval'.  Run with -help for usage.\n"},
      {{"user", "-dummy", "-Locale=de_DE", "-PollInterval", "0"},
       "1 ruvoagent " RUVO_VERSION "\nVerwendung: ",
       "Ungültiges Argument „-PollInterval“.  Zur Anzeige der Verwendung mit -help ausführen.\n"},
      {{"user", "-dummy", "-Monitor=\xFF"}, "1 |", "Bad UTF-8 string for Monitor\n"},
      {{"user", "-dummy"}, "1 |", "unable to open display \":9999\"\n"},
  };
  for (const auto& c : cases) {
    const std::string outcome = run(c.arguments, programOptions(":9999"));
    EXPECT_TRUE(outcome.starts_with(c.begin) && outcome.ends_with("|" + c.errors)) << outcome;
  }
  // Its own file is found without a name, too.
  EXPECT_EQ(
      outcomeOf({"bash", "-c", "exec -a '' \"$0\" --version", RUVO_AGENT}, programOptions("")),
      "0 ruvoagent " RUVO_VERSION "\n|");
  const std::string help = run({"user", "-dummy", "-HELP", "all"}, programOptions(":9999"));
  for (const char* name : {"AgentAppX11", "SDesktopX11", "TXWindow", "TcpIo", "ruvoagent", "ipc"}) {
    EXPECT_NE(help.find(plat::format("\n  %s\n", name)), std::string::npos) << name;
  }
}

TEST_F(StartUpTest, NoFontIsAnError) {
  support::TempDir fonts;
  std::ofstream(fonts / "no-font.pcf") << "no font\n";
  for (const char* listed :
       {"0\n", "1\nno-font.pcf -a-helvetica-medium-r-normal--12-120-75-75-p-67-iso8859-1\n"}) {
    std::ofstream(fonts / "fonts.dir") << listed;
    const auto own = support::XServer::xvfb("64x48x24");
    own->run({"xset", "fp=", fonts.path()});
    EXPECT_EQ(run({"user", "-dummy"}, programOptions(own->display())),
              "1 |Failed to load any font\n");
  }
}

// Whether it is the channel's or the X connection's, it would never be polled.
TEST_F(StartUpTest, DescriptorsBeyondTheLimitOfSelectAreRefused) {
  const plat::FileDescriptor null(open("/dev/null", O_RDONLY | O_CLOEXEC));
  Program::Options options = programOptions(display());
  for (int fd = STDERR_FILENO + 1; fd <= 1024; ++fd) options.descriptors[fd] = null.get();
  for (const char* name : {"1024", "-dummy"}) {
    const std::string outcome = run({"user", name}, options);
    EXPECT_TRUE(outcome.starts_with("1 |Descriptor ") &&
                outcome.ends_with(" is too large to wait for (limit 1023)\n"))
        << outcome;
  }
}

TEST_F(StartUpTest, LeavesTheServersProcessesWhenAskedTo) {
  host::LaunchOptions options = Agent::options(display());
  options.channel = host::LaunchOptions::Channel::kNamedSocket;
  options.pipeOptions = {"-fork"};
  host::AgentProcess process = host::AgentProcess::launch(options);
  plat::FileDescriptor channel = process.takeChannel();
  ucred peer{};
  socklen_t length = sizeof peer;
  getsockopt(channel.get(), SOL_SOCKET, SO_PEERCRED, &peer, &length);
  Recorder seen;
  host::AgentConnection connection(std::move(channel), &seen);
  ASSERT_TRUE(connection.processUntil([&] { return seen.greeted(); }, 10000));
  EXPECT_NE(peer.pid, process.pid());
  EXPECT_EQ(getsid(peer.pid), peer.pid) << "in a session of its own";
  connection.close();
  EXPECT_EQ(process.wait(10000), 0);
  // One that ends before it connects is not waited for.
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
  std::filesystem::create_directories(home / ".ruvo/config.d");
  std::filesystem::create_directories(home / ".ruvo/policy.d");
  std::ofstream(home / ".ruvo/config.d/common") << "PollInterval = 77\nUpdatePeriod=10\npoll=5\n";
  std::ofstream(home / ".ruvo/config.d/common.custom") << "UpdatePeriod=11\n_MaxGrabRects=3\n";
  std::ofstream(home / ".ruvo/policy.d/common") << "UpdatePeriod=12\n";  // users impose none
  host::LaunchOptions launch = Agent::options(display(), {{"poll", "6"}});
  launch.environment[0].second = home.path();
  Agent agent(launch);
  agent.sync();
  std::string settings;
  for (const host::LogLine& line : agent.seen.log) {
    if (line.level == 30 && line.source == "Configuration") settings += line.text + "; ";
  }
  EXPECT_EQ(settings,
            "poll=6 (Preference); PollInterval=77 (Preference); UpdatePeriod=11 (Preference); ");
  // The list is of the program's own defaults.
  Program::Options options = programOptions(display());
  options.environment["HOME"] = home.path();
  EXPECT_EQ(run({"user", "-paramsxml"}, options).find("priority=\"10\""), std::string::npos);
}

}  // namespace
