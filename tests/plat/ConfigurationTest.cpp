#include "plat/Configuration.h"

#include <gtest/gtest.h>

#include <sstream>

#include "plat/BinaryParameter.h"
#include "plat/BoolParameter.h"
#include "plat/Exception.h"
#include "plat/IntParameter.h"
#include "plat/StringParameter.h"
#include "support/LogCapture.h"
#include "support/Thrown.h"

namespace {

using namespace plat;
using Lines = std::vector<std::string>;

// A group of parameters for the tests of this file.
struct Group {
  Configuration config{"Test"};
  Configuration child{"Child"};
  BoolParameter flag{"Flag", "Switches something.", false, false, nullptr, &config};
  BoolParameter other{"Other", "", true, false, nullptr, &config};
  IntParameter interval{"PollInterval", "How often.", 50, 1, 1000, true, nullptr, &config};
  StringParameter dir{"LogDir", "Where.", "", false, nullptr, &config};
  StringParameter hidden{"_Hidden", "", "", false, nullptr, &config};
  StringParameter inner{"Inner", "Inside.", "", false, nullptr, &child};

  Group() { config.addChild(&child); }
};

// The English texts that these tests meet; the real ones belong to another library.
String testTexts(const char* id) {
  const std::string_view name = id;
  if (name == "plat_bad_argument") return "Bad argument '%S'.";
  if (name == "plat_run_with_help") return "Run with -help for usage.";
  if (name == "plat_configuration_help_default") return "default";
  return {};
}

class ConfigurationTest : public testing::Test {
 protected:
  void SetUp() override { former_ = setTranslator(testTexts); }
  void TearDown() override { setTranslator(former_); }

 private:
  Translator former_ = nullptr;
};

TEST_F(ConfigurationTest, FindsParametersInAnyCaseAndInChildren) {
  Group g;
  EXPECT_EQ(g.config.findParam("pollinterVAL"), &g.interval);
  EXPECT_EQ(g.config.findParam("INNER"), &g.inner);
  EXPECT_EQ(g.config.findParam("Inner", false), nullptr);
  EXPECT_EQ(g.config.findParam("Fla"), nullptr);
  EXPECT_EQ(&g.config.getParam("flag"), &g.flag);
  EXPECT_EQ(test::thrownText([&] { g.config.getParam("Nothing"); }), "Parameter Nothing not found");
  EXPECT_TRUE(g.config.setParam("inner", "x", 10));
  EXPECT_FALSE(g.config.setParam("innermost", "x", 10));
}

TEST_F(ConfigurationTest, AliasSetsEveryTarget) {
  Group g;
  ParameterAlias alias("Both", {"Flag", "PollInterval", "Absent"}, &g.config);
  EXPECT_TRUE(g.config.setParam("BOTH", "1", 30));
  EXPECT_EQ(g.flag.getValueStrAt(30), "1");
  EXPECT_EQ(g.interval.getValueStrAt(30), "1");
  EXPECT_TRUE(g.config.setParam("both", "7", 10)) << "one target takes it";
  EXPECT_FALSE(g.flag.hasValueAt(10));
  EXPECT_FALSE(g.config.setParam("both", "x", 10));

  ParameterAlias::ValueMap map{{"flag", "old"}, {"Else", "kept"}};
  alias.expand("Both", "new", map);
  EXPECT_EQ(map.size(), 4u);
  EXPECT_EQ(map.at("flag"), "new");
  EXPECT_EQ(map.begin()->first, "Absent");
  EXPECT_EQ(map.at("Else"), "kept");
}

TEST_F(ConfigurationTest, ReadsTheCommandLine) {
  const struct {
    std::vector<const char*> args;
    const char* refused;  // the argument that parsing stops at, null for none
    const char* flag;     // values at priority 10, null for none
    const char* interval;
    const char* dir;
  } cases[] = {
      {{}, nullptr, nullptr, nullptr, nullptr},
      {{"-Flag"}, nullptr, "1", nullptr, nullptr},
      {{"-Flag=0"}, nullptr, "0", nullptr, nullptr},
      {{"Flag="}, nullptr, "1", nullptr, nullptr},
      {{"-Flag", "no"}, "no", "1", nullptr, nullptr},
      {{"Flag"}, "Flag", nullptr, nullptr, nullptr},
      {{"-Flag=maybe", "1"}, "-Flag=maybe", nullptr, nullptr, nullptr},
      {{"-PollInterval", "20"}, nullptr, nullptr, "20", nullptr},
      {{"-PollInterval", "0"}, "-PollInterval", nullptr, nullptr, nullptr},
      {{"-PollInterval=0"}, "-PollInterval=0", nullptr, nullptr, nullptr},
      {{"-PollInterval"}, "-PollInterval", nullptr, nullptr, nullptr},
      {{"--PollInterval", "20"}, "--PollInterval", nullptr, nullptr, nullptr},
      {{"--LogDir=/tmp"}, nullptr, nullptr, nullptr, "/tmp"},
      {{"--LogDir", "/tmp"}, "--LogDir", nullptr, nullptr, nullptr},
      {{"-LogDir", "-Flag"}, nullptr, nullptr, nullptr, "-Flag"},
      {{"LogDir=a=b", "-Flag"}, nullptr, "1", nullptr, "a=b"},
      {{"-LogDir="}, nullptr, nullptr, nullptr, ""},
      {{"---Flag"}, "---Flag", nullptr, nullptr, nullptr},
      {{"-"}, "-", nullptr, nullptr, nullptr},
      {{"--", "x"}, "--", nullptr, nullptr, nullptr},
      {{"", "-Flag"}, "", nullptr, nullptr, nullptr},
      {{"=1"}, "=1", nullptr, nullptr, nullptr},
      {{"-LogDir", "x", "-Unknown", "-Flag"}, "-Unknown", nullptr, nullptr, "x"},
      {{"-help"}, "-help", nullptr, nullptr, nullptr},
  };
  for (const auto& c : cases) {
    Group g;
    std::vector<const char*> args = c.args;
    const std::string shown = testing::PrintToString(args);
    args.push_back(nullptr);
    EXPECT_EQ(
        test::thrownBy([&] { g.config.processArgs(args.data()); }),
        c.refused ? std::string("BadCmdLineArg: Bad argument '") + c.refused + "'." : "nothing")
        << shown;
    EXPECT_EQ(g.flag.getValueStrAt(10), String(c.flag)) << shown;
    EXPECT_EQ(g.interval.getValueStrAt(10), String(c.interval)) << shown;
    EXPECT_EQ(g.dir.getValueStrAt(10), String(c.dir)) << shown;
  }
  Group g;
  const char* const bad[] = {"-LogDir=\xFF", nullptr};
  EXPECT_THROW(g.config.processArgs(bad), BadUtf8);
}

TEST_F(ConfigurationTest, AsksForHelpWhereParsingStops) {
  const struct {
    std::vector<const char*> args;
    int mode;  // -1: the handler is not called
    const char* refused;
  } cases[] = {{{"-help"}, 0, "-help"},
               {{"--HELP", "all"}, 1, "--HELP"},
               {{"-H", "xml"}, 2, "-H"},
               {{"-Flag", "/?", "none"}, 0, "/?"},
               {{"-LogDir", "-help"}, -1, nullptr},
               {{"-nothing", "-help"}, -1, "-nothing"}};
  for (const auto& c : cases) {
    Group g;
    std::vector<const char*> args = c.args;
    args.push_back(nullptr);
    int mode = -1;
    const std::string message = test::thrownText([&] {
      g.config.processArgs(args.data(),
                           [&](Configuration::HelpMode m) { mode = static_cast<int>(m); });
    });
    EXPECT_EQ(mode, c.mode) << c.args[0];
    EXPECT_EQ(message, c.refused ? std::string("Bad argument '") + c.refused +
                                       "'.  Run with -help for usage."
                                 : "nothing");
  }
}

TEST_F(ConfigurationTest, ListsParameters) {
  Group g;
  g.interval.setParam("60", 10);
  std::ostringstream usage;
  g.config.printUsage(usage, true, {"Desktop", "Window"}, {"ipc"});
  EXPECT_EQ(usage.str(),
            "plat_configuration_param_usage\n\n"
            "Test Parameters:\n"
            "  Flag         - Switches something. (default=0)\n"
            "  LogDir       - Where. (default=)\n"
            "  Other        - (default=1)\n"
            "  PollInterval - How often. (default=50)\n"
            "\n"
            "Child Parameters:\n"
            "  Inner - Inside. (default=)\n"
            "\n"
            "plat_configuration_log_names_title\n"
            "  Desktop\n"
            "  Window\n"
            "\n"
            "plat_configuration_log_dests_title\n"
            "  ipc\n");
}

TEST_F(ConfigurationTest, WrapsDescriptions) {
  Configuration config("Test", "group_description");
  // Each e-acute is two bytes but one column wide.
  StringParameter text(
      "P", "\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9 bbbb cccc dddddd  ee aaaaaaaaaaaaaaaaaaaaaaaaaa f", "",
      false, nullptr, &config);
  std::ostringstream out;
  config.printHelp(out, false, false, 26);
  EXPECT_EQ(out.str(),
            "group_description:\n"
            "  P - \xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9 bbbb cccc\n"
            "      dddddd  ee\n"
            "      aaaaaaaaaaaaaaaaaaaaaaaaaa\n"
            "      f\n");
}

TEST_F(ConfigurationTest, LogsEffectiveValues) {
  Group g;
  BinaryParameter secret("Secret", "", {}, false, nullptr, &g.child);
  g.config.setLogChanges(false);
  g.child.setLogChanges(false);
  secret.setParam("aa", 10);
  g.dir.setParam("/tmp", 10);
  g.interval.setParam("9", 30);
  g.inner.setParam("i", 30);
  g.inner.setParam("j", 10);
  g.other.setParam("0", 15);
  g.hidden.setParam("h", 10);
  support::LogCapture log(200);
  g.config.logValues();
  EXPECT_EQ(log.take(), (Lines{
                            "30 Configuration: Inner=i (Policy overriding preference)",
                            "30 Configuration: PollInterval=9 (Policy)",
                            "30 Configuration: Other=0 (Priority 15)",
                            "30 Configuration: LogDir=/tmp (Preference)",
                            "30 Configuration: Secret=<binary> (Preference)",
                            "100 Configuration: Flag=0 (Default)",
                        }));
}

TEST_F(ConfigurationTest, FillsArgumentsIntoTexts) {
  setTranslator([](const char*) { return String("<%S> 100% %s %S"); });
  EXPECT_EQ(translate(MessageId{"x"}, "%S!"), "<%S!> 100% %s %S!");
  setTranslator(nullptr);
  EXPECT_EQ(translate(MessageId{"some_id"}), "some_id");
}

}  // namespace
