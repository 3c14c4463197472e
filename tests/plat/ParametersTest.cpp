// The types of parameters: their texts, their priorities and their XML form.

#include <gtest/gtest.h>

#include <sstream>

#include "plat/config/BinaryParameter.h"
#include "plat/config/BoolParameter.h"
#include "plat/config/Configuration.h"
#include "plat/config/EnumParameter.h"
#include "plat/config/IntParameter.h"
#include "plat/config/ParameterChangedCallback.h"
#include "plat/config/S64Parameter.h"
#include "plat/config/StringParameter.h"
#include "plat/config/XmlConfig.h"
#include "support/LogCapture.h"
#include "support/Thrown.h"

namespace {

using namespace plat;
using Lines = std::vector<std::string>;

const char* const kSides[] = {"Left & right", "None", nullptr};

struct Group {
  Configuration config{"Test"};
  Configuration child{"Child"};
  StringParameter text{"text", "Say <a> & \"b\".", "t", false, "zz,noPolicy", &config};
  BoolParameter flag{"Flag", MessageId{"some_id"}, true, true, nullptr, &config};
  IntParameter number{"Number", "", 5, -9, INT32_MAX, false, nullptr, &config};
  EnumParameter side{"side", "d", 1, kSides, false, nullptr, &config};
  S64Parameter wide{"Wide", "d", 258, false, nullptr, &config};
  BinaryParameter bytes{"Bytes", "d", {}, false, nullptr, &child};

  Group() { config.addChild(&child); }
  std::string written() const {
    std::ostringstream out;
    XmlConfig::write(out, config);
    return out.str();
  }
};

TEST(ParametersTest, ReadText) {
  Group g;
  const struct {
    ConfigParameter& param;
    const char *text, *value;
  } good[] = {{g.flag, "Off", "0"},
              {g.flag, nullptr, "1"},
              {g.number, "0x7fffffff", "2147483647"},
              {g.number, "010", "8"},
              {g.side, "none", "None"},
              // Bare digits have the lowest byte first.
              {g.wide, "0100000000000000", "int64:0000000000000001"},
              {g.wide, "int64:FFFFFFFFFFFFFFFD", "int64:FFFFFFFFFFFFFFFD"},
              {g.bytes, "00fFa5", "<binary>"}};
  for (const auto& c : good) {
    EXPECT_TRUE(c.param.setParam(c.text, 10)) << c.value;
    EXPECT_EQ(c.param.getValueStr(), c.value);
  }
  EXPECT_EQ(g.wide.value(), -3);

  const std::pair<ConfigParameter&, std::vector<const char*>> bad[] = {
      {g.flag, {"2", "on "}},
      {g.number, {nullptr, "", "-10", "2147483648", "18446744073709551621", "08", "5 "}},
      {g.side, {nullptr, "1", "Nones"}},
      {g.text, {nullptr}},
      {g.wide, {nullptr, "int64:1", "int64:000000000000000g"}},
      {g.bytes, {nullptr, "abc", "0g"}}};
  support::LogCapture log(200);
  for (const auto& [param, texts] : bad) {
    const String before = param.getValueStr();
    for (const char* text : texts) EXPECT_FALSE(param.setParam(text, 10)) << (text ? text : "null");
    EXPECT_EQ(param.getValueStr(), before);
  }
  EXPECT_EQ(log.take().at(0), "0 ConfigParameter: Bool parameter Flag: invalid value '2'");
}

TEST(ParametersDeathTest, BadUtf8CanBeFatal) {
  EXPECT_DEATH(
      {
        Configuration::global().setParam("_BadUtf8Assert", nullptr, 10);
        Configuration::global().setParam("LogDir", "\xFF", 10);
      },
      "Assertion failed: .*Bad UTF-8 string for LogDir");
}

TEST(ParametersTest, HighestPriorityIsEffective) {
  Group g;
  support::LogCapture log(200);
  EXPECT_TRUE(g.text.setParam("a", 20));
  EXPECT_TRUE(g.text.setParam("b", 10));
  EXPECT_EQ(g.text.value(), "a");
  EXPECT_TRUE(g.text.setParam("b", 10)) << "accepted, but not announced again";
  EXPECT_TRUE(g.text.unsetParam(20, true));
  EXPECT_EQ(g.text.value(), "b");
  EXPECT_FALSE(g.text.unsetParam(20, true) || g.text.unsetParam(0, true));
  EXPECT_TRUE(g.text.setParam("c", -1));
  EXPECT_FALSE(g.text.setParam("d", 30)) << "no policy";
  const std::string set = "ConfigParameter: set text(string) to ";
  EXPECT_EQ(log.take(),
            (Lines{"100 " + set + "a, priority 20", "100 " + set + "b, priority 10",
                   "100 ConfigParameter: unset text(string) priority 20, now b, priority 10",
                   "110 " + set + "c, priority -1"}));
}

TEST(XmlConfigTest, WritesEveryTypeAndReadsItBack) {
  Group g;
  g.flag.setParam("off", 30);
  g.bytes.setParam("00AB", 10);
  g.text.setParam("\"<1>\"\n&'\t\xC3\xA9", -2);
  EXPECT_EQ(g.written(),
            R"(<?xml version="1.0"?>
<config>
<binary name="Bytes"
        description="d"
        advanced="false">
    <value data="" priority="0"/>
    <value data="00ab" priority="10"/>
</binary>
<bool   name="Flag"
        locDesc="some_id"
        advanced="true">
    <value data="1" priority="0"/>
    <value data="0" priority="30"/>
</bool>
<int    name="Number"
        description=""
        advanced="false"
        min="-9"
        max="2147483647">
    <value data="5" priority="0"/>
</int>
<enum   name="side"
        description="d"
        advanced="false"
        min="0"
        max="1">
    <value data="None" priority="0"/>
    <opt data="Left &amp; right"/>
    <opt data="None"/>
</enum>
<string name="text"
        description="Say &lt;a&gt; &amp; &quot;b&quot;."
        advanced="false"
        flags="noPolicy,zz">
    <value data="&quot;&lt;1&gt;&quot;&#10;&amp;'&#9;)"
            "\xC3\xA9"
            R"(" priority="-2"/>
    <value data="t" priority="0"/>
</string>
<s64    name="Wide"
        description="d"
        advanced="true">
    <value data="int64:0000000000000102" priority="0"/>
</s64>
</config>
)");
  Group read;
  XmlConfig::read(g.written(), read.config);
  EXPECT_EQ(read.written(), g.written());
}

TEST(XmlConfigTest, AppliesNothingOfABadDocument) {
  const std::string number = "<int name='Number' description='' advanced='false'";
  const std::string good = "<config>" + number + "><value data='8' priority='10'/></int>";
  std::vector<std::string> documents = {
      good + "</config><config/>", good + "text</config>",
      good + "<bool name='Number' description='' advanced='false'/></config>",
      good + number + " flags='noPolicy'/></config>",
      good + number + "><value data='-10' priority='10'/></int></config>"};
  documents.emplace_back();
  for (int i = 0; i < 100000; ++i) documents.back() += "<config>";
  Group g;
  const std::string before = g.written();
  for (size_t length = 0; length + 1 < before.size(); ++length) {
    documents.push_back(before.substr(0, length));
  }
  for (const std::string& document : documents) {
    EXPECT_EQ(support::thrownText([&] { XmlConfig::read(document, g.config); }),
              "Incompatible XML config")
        << document.substr(0, 200);
    EXPECT_EQ(g.written(), before) << document.substr(0, 200);
  }
}

}  // namespace
