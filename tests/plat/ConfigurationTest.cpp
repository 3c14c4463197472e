#include "plat/config/Configuration.h"

#include <gtest/gtest.h>

#include <cstring>
#include <sstream>

#include "plat/Exception.h"
#include "plat/config/BoolParameter.h"
#include "plat/config/IntParameter.h"
#include "plat/config/ParameterAlias.h"
#include "plat/config/StringParameter.h"
#include "support/LogCapture.h"
#include "support/Thrown.h"

namespace {

using namespace plat;
using Lines = std::vector<std::string>;

// Of characters of two bytes, which are one column wide.
const char* const kLong =
    "How often. \xC3\xA9\xC3\xA9\xC3\xA9 678901234567890123456789012345678901234567890"
    "\xC3\xA9 next";

// A group of parameters for the tests of this file.
struct Group {
  Configuration config{"Test"};
  Configuration child{"Child"};
  BoolParameter flag{"Flag", "Switches something.", false, false, nullptr, &config};
  BoolParameter other{"Other", "", true, false, nullptr, &config};
  IntParameter interval{"PollInterval", kLong, 50, 1, 1000, true, nullptr, &config};
  StringParameter dir{"LogDir", "Where.", "", false, nullptr, &config};
  StringParameter hidden{"_Hidden", "", "", false, nullptr, &config};
  StringParameter inner{"Inner", "Inside.", "", false, nullptr, &child};

  Group() { config.addChild(&child); }
};

// Texts are the last words of their ids; the real ones belong to another library.
class ConfigurationTest : public testing::Test {
 protected:
  ConfigurationTest() {
    setTranslator([](const char* id) {
      const char* const word = std::strrchr(id, '_') + 1;
      return std::string_view(word) == "argument" ? String("Bad argument '%S'.") : String(word);
    });
  }
  ~ConfigurationTest() override { setTranslator(nullptr); }
};

TEST_F(ConfigurationTest, FindsParametersAndAliases) {
  Group g;
  EXPECT_EQ(g.config.findParam("Inner", false), nullptr);
  EXPECT_EQ(&g.config.getParam("INNER"), &g.inner);
  EXPECT_EQ(support::thrownText([&] { g.config.getParam("Fla"); }), "Parameter Fla not found");
  ParameterAlias alias("Both", {"Flag", "PollInterval", "Absent"}, &g.config);
  EXPECT_TRUE(g.config.setParam("BOTH", "1", 30));
  EXPECT_EQ(g.flag.getValueStrAt(30), "1");
  EXPECT_EQ(g.interval.getValueStrAt(30), "1");
  EXPECT_TRUE(g.config.setParam("both", "7", 10)) << "one target takes it";
  EXPECT_FALSE(g.flag.hasValueAt(10));
  EXPECT_FALSE(g.config.setParam("both", "x", 10));
}

TEST_F(ConfigurationTest, ReadsTheCommandLine) {
  const struct {
    std::vector<const char*> args;
    const char* refused;     // the argument that parsing stops at, null for none
    const char *flag, *dir;  // values at priority 10, null for none
    int help = -1;           // the mode asked for, -1 for none
  } cases[] = {
      {{"-Flag", "no"}, "no", "1", nullptr},
      {{"-Flag=maybe", "1"}, "-Flag=maybe", nullptr, nullptr},
      {{"-PollInterval", "0"}, "-PollInterval", nullptr, nullptr},
      {{"--LogDir=/tmp"}, nullptr, nullptr, "/tmp"},
      {{"-LogDir", "-help"}, nullptr, nullptr, "-help"},
      {{"LogDir=a=b", "-Flag"}, nullptr, "1", "a=b"},
      {{"", "-Flag"}, "", nullptr, nullptr},
      {{"-LogDir", "x", "-Unknown", "-help"}, "-Unknown", nullptr, "x"},
      {{"--HELP", "all"}, "--HELP", nullptr, nullptr, 1},
      {{"-Flag", "/?", "none"}, "/?", "1", nullptr, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.args));
    Group g;
    std::vector<const char*> args = c.args;
    args.push_back(nullptr);
    int help = -1;
    EXPECT_EQ(support::thrownBy([&] {
                g.config.processArgs(args.data(), [&](Configuration::HelpMode mode) {
                  help = static_cast<int>(mode);
                });
              }),
              c.refused ? std::string("BadCmdLineArg: Bad argument '") + c.refused + "'.  help"
                        : "nothing");
    EXPECT_EQ(help, c.help);
    EXPECT_EQ(g.flag.getValueStrAt(10), String(c.flag));
    EXPECT_EQ(g.dir.getValueStrAt(10), String(c.dir));
  }
}

TEST_F(ConfigurationTest, ListsParameters) {
  Group g;
  g.interval.setParam("60", 10);
  std::ostringstream usage;
  g.config.printUsage(usage, true, {"Desktop", "Window"}, {"ipc"});
  EXPECT_EQ(usage.str(),
            "usage\n\n"
            "Test Parameters:\n"
            "  Flag         - Switches something. (default=0)\n"
            "  LogDir       - Where. (default=)\n"
            "  Other        - (default=1)\n"
            "  PollInterval - How often. \xC3\xA9\xC3\xA9\xC3\xA9 "
            "678901234567890123456789012345678901234567890\xC3\xA9\n"
            "                 next (default=50)\n"
            "\n"
            "Child Parameters:\n"
            "  Inner - Inside. (default=)\n"
            "\n"
            "title\n"
            "  Desktop\n"
            "  Window\n"
            "\n"
            "title\n"
            "  ipc\n");
}

TEST_F(ConfigurationTest, LogsEffectiveValues) {
  Group g;
  g.config.setLogChanges(false);
  g.child.setLogChanges(false);
  g.interval.setParam("9", 30);
  g.inner.setParam("i", 30);
  g.inner.setParam("j", 10);
  g.other.setParam("0", 15);
  g.hidden.setParam("h", 10);
  support::LogCapture log(200);
  g.config.logValues();
  EXPECT_EQ(
      log.take(),
      (Lines{"30 Configuration: Inner=i (Policy overriding preference)",
             "30 Configuration: PollInterval=9 (Policy)", "30 Configuration: Other=0 (Priority 15)",
             "100 Configuration: Flag=0 (Default)", "100 Configuration: LogDir= (Default)"}));
}

}  // namespace
