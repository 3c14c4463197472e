#include <gtest/gtest.h>

#include <climits>
#include <functional>

#include "plat/BinaryParameter.h"
#include "plat/BoolParameter.h"
#include "plat/Configuration.h"
#include "plat/EnumParameter.h"
#include "plat/IntParameter.h"
#include "plat/ParameterChangedCallback.h"
#include "plat/S64Parameter.h"
#include "plat/StringParameter.h"
#include "support/LogCapture.h"
#include "support/Thrown.h"

namespace {

using namespace plat;
using Lines = std::vector<std::string>;

const char* const kColours[] = {"Red", "Green", "Blue", nullptr};

class Recorder : public ParameterChangedCallback {
 public:
  void paramChanged(ConfigParameter*, int priority) override {
    priorities.push_back(priority);
    if (action) action();
  }

  std::vector<int> priorities;
  std::function<void()> action;
};

TEST(BoolParameter, ReadsItsWords) {
  Configuration config("Test");
  const auto read = [&](const char* text, bool before) {
    BoolParameter param("P", "", before, false, nullptr, &config);
    return !param.setParam(text, 10) ? "refused" : param.value() ? "on" : "off";
  };
  EXPECT_STREQ(read(nullptr, false), "on");
  for (const char* text : {"", "1", "on", "TRUE", "Yes"}) EXPECT_STREQ(read(text, false), "on");
  for (const char* text : {"0", "Off", "no", "false"}) EXPECT_STREQ(read(text, true), "off");
  support::LogCapture log(200);
  for (const char* text : {"2", "01", "y", " 1", "tru", "-1", "t", "on ", "truex"}) {
    EXPECT_STREQ(read(text, false), "refused") << text;
    EXPECT_EQ(
        log.take(),
        Lines{std::string("0 ConfigParameter: Bool parameter P: invalid value '") + text + "'"});
  }
}

TEST(IntParameter, ReadsNumbersWithinItsLimits) {
  Configuration config("Test");
  IntParameter param("P", "", 1, -3, INT_MAX, false, nullptr, &config);
  const std::pair<const char*, int> good[] = {
      {"5", 5}, {"0x7fffffff", INT_MAX}, {"2147483647", INT_MAX}, {"010", 8}, {"-3", -3},
      {" 7", 7}};
  for (const auto& [text, value] : good) {
    EXPECT_TRUE(param.setParam(text, 10)) << text;
    EXPECT_EQ(param.value(), value) << text;
  }
  support::LogCapture log(200);
  for (const char* text : {"-4", "2147483648", "4294967301", "18446744073709551621",
                           "-99999999999999999999", "08", "0x", "5 ", "5ms", "1.0", " ", ""})
    EXPECT_FALSE(param.setParam(text, 10)) << text;
  EXPECT_FALSE(param.setParam(nullptr, 10));
  EXPECT_FALSE(param.setParam(-4, 10));
  EXPECT_EQ(param.value(), 7);
  EXPECT_EQ(log.take(), Lines{});
}

TEST(EnumParameter, ReadsNamesOnly) {
  Configuration config("Test");
  EnumParameter param("P", "", 0, kColours, false, nullptr, &config);
  EXPECT_TRUE(param.setParam("BLUE", 10));
  for (const char* text : {"1", "", "Blu", "Bluer"}) EXPECT_FALSE(param.setParam(text, 10)) << text;
  EXPECT_FALSE(param.setParam(nullptr, 10));
  for (const int value : {3, -1}) EXPECT_FALSE(param.setParam(value, 10));
  EXPECT_EQ(param.getValueInt(), 2);
  EXPECT_EQ(param.getValueStr(), "Blue");
}

TEST(StringParameter, TakesUtf8Only) {
  Configuration config("Test");
  StringParameter param("Name", "", "before", false, nullptr, &config);
  EXPECT_FALSE(param.setParam(nullptr, 10));
  EXPECT_FALSE(param.setParam(1, 10));
  EXPECT_EQ(test::thrownBy([&] { param.setParam("caf\xE9", 10); }),
            "BadUtf8: Bad UTF-8 string for Name");
  EXPECT_EQ(param.value(), "before");
  EXPECT_TRUE(param.setParam("caf\xC3\xA9", 10));
  EXPECT_EQ(param.getValueStr(), "caf\xC3\xA9");
}

TEST(StringParameterDeathTest, Assertions) {
  Configuration config("Test");
  StringParameter param("Name", "", "", false, nullptr, &config);
  EXPECT_DEATH(
      {
        Configuration::global().setParam("_BadUtf8Assert", nullptr, 10);
        param.setParam("\xFF", 10);
      },
      "Assertion failed: .*Bad UTF-8 string for Name");
}

TEST(S64Parameter, OrdersBytesByTheForm) {
  Configuration config("Test");
  S64Parameter param("P", "", 77, false, nullptr, &config);
  const struct {
    const char *text, *shown;
    int64_t value;
  } cases[] = {{"0100000000000000", "int64:0000000000000001", 1},
               {"int64:0100000000000000", "int64:0100000000000000", 0x0100000000000000},
               {"fEffffffffffffff", "int64:fffffffffffffffe", -2},
               {"int64:FFFFFFFFFFFFFFFD", "int64:FFFFFFFFFFFFFFFD", -3},
               {"0000000000000080", "int64:8000000000000000", INT64_MIN}};
  for (const auto& c : cases) {
    EXPECT_TRUE(param.setParam(c.text, 10)) << c.text;
    EXPECT_EQ(param.value(), c.value) << c.text;
    EXPECT_EQ(param.getValueStr(), c.shown) << c.text;
  }
  for (const char* text :
       {"int64:1", "int64:00000000000000001", "int64:000000000000000g", "INT64:0000000000000001",
        "01000000000000", "010000000000000000", "010000000000000", "01 0000000000000", ""})
    EXPECT_FALSE(param.setParam(text, 10)) << text;
  EXPECT_FALSE(param.setParam(nullptr, 10));
  EXPECT_EQ(param.value(), INT64_MIN);
}

TEST(BinaryParameter, KeepsItsBytesToItself) {
  Configuration config("Test");
  BinaryParameter param("Secret", "", {}, false, nullptr, &config);
  support::LogCapture log(200);
  for (const char* text : {"a", "abc", "0g", "0x00", " 00"}) {
    EXPECT_FALSE(param.setParam(text, 10)) << text;
  }
  EXPECT_FALSE(param.setParam(nullptr, 10));
  ASSERT_TRUE(param.setParam("00fFa5", 10));

  BinaryParameter::Bytes bytes;
  param.getData(bytes);
  const unsigned char expected[] = {0x00, 0xFF, 0xA5};
  EXPECT_EQ(bytes, BinaryParameter::Bytes(expected, sizeof expected));
  EXPECT_TRUE(bytes.sensitive());

  EXPECT_EQ(param.getValueStr(), "<binary>");
  EXPECT_EQ(param.getAllValues().at(10), "<binary>");
  EXPECT_EQ(param.getStoredTextAt(10), "00ffa5");
  EXPECT_EQ(log.take(), Lines{"100 ConfigParameter: set Secret(binary) to <binary>, priority 10"});
}

TEST(ConfigParameter, HighestPriorityIsEffective) {
  Configuration config("Test");
  IntParameter param("P", "", 1, 0, 100, false, nullptr, &config);
  Recorder recorder;
  param.addCallback(&recorder);

  EXPECT_TRUE(param.setParam("30", 30));
  EXPECT_TRUE(param.setParam("10", 10));
  EXPECT_EQ(param.value(), 30);
  EXPECT_EQ(param.getPriority(), 30);
  EXPECT_EQ(param.getValueStrAt(10), "10");
  EXPECT_TRUE(param.setParam("0xA", 10)) << "the same value is accepted";
  EXPECT_EQ(recorder.priorities, (std::vector<int>{30, 10})) << "but announced once";

  EXPECT_TRUE(param.unsetParam(30, true));
  EXPECT_EQ(param.value(), 10);
  EXPECT_FALSE(param.unsetParam(30, true));
  EXPECT_FALSE(param.unsetParam(0, true));
  EXPECT_TRUE(param.unsetParam(10, false));
  EXPECT_EQ(param.value(), 1);
  EXPECT_EQ(recorder.priorities, (std::vector<int>{30, 10, 30}));

  EXPECT_TRUE(param.setParam(5, -1));
  EXPECT_EQ(param.value(), 1);
  EXPECT_EQ((std::map<int, String>{{-1, "5"}, {0, "1"}}), param.getAllValues());
}

TEST(ConfigParameter, LogsChangesBeforeItAnnouncesThem) {
  Configuration config("Test");
  StringParameter param("Name", "", "", false, nullptr, &config);
  support::LogCapture log(200);
  Recorder recorder;
  Lines before;
  recorder.action = [&] { before = log.take(); };
  param.addCallback(&recorder);

  param.setParam("a", 10);
  EXPECT_EQ(before, Lines{"100 ConfigParameter: set Name(string) to a, priority 10"});
  param.setParam("b", 0);
  EXPECT_EQ(before, Lines{"110 ConfigParameter: set Name(string) to b, priority 0"});
  param.unsetParam(10, true);
  EXPECT_EQ(before,
            Lines{"100 ConfigParameter: unset Name(string) priority 10, now b, priority 0"});

  config.setLogChanges(false);
  param.setParam("c", 10);
  param.unsetParam(10, false);
  EXPECT_EQ(log.take(), Lines{});
}

TEST(ConfigParameter, NoPolicyTagRefusesPolicy) {
  Configuration config("Test");
  StringParameter param("P", "", "", false, "other,noPolicy", &config);
  EXPECT_EQ(param.tags(), (std::set<std::string>{"noPolicy", "other"}));
  EXPECT_FALSE(param.setParam("x", 30));
  EXPECT_FALSE(param.hasValueAt(30));
  EXPECT_TRUE(param.setParam("x", 31));
}

TEST(ConfigParameter, CallbacksMayLeaveWhileTheyAreTold) {
  Configuration config("Test");
  BoolParameter param("P", "", false, false, nullptr, &config);
  Recorder first;
  Recorder second;
  param.addCallback(&first);
  param.addCallback(&second);
  first.action = [&] {
    param.removeCallback(&first);
    param.removeCallback(&second);
  };
  param.setParam(true, 10);
  param.setParam(false, 10);
  EXPECT_EQ(first.priorities.size(), 1u);
  EXPECT_EQ(second.priorities.size(), 0u);
}

}  // namespace
