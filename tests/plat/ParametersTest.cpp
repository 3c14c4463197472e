// The types of parameters: their texts, their priorities and their XML form.

#include <gtest/gtest.h>

#include <functional>
#include <sstream>

#include "plat/BinaryParameter.h"
#include "plat/BoolParameter.h"
#include "plat/Configuration.h"
#include "plat/EnumParameter.h"
#include "plat/IntParameter.h"
#include "plat/ParameterChangedCallback.h"
#include "plat/S64Parameter.h"
#include "plat/StringParameter.h"
#include "plat/XmlConfig.h"
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

class Recorder : public ParameterChangedCallback {
 public:
  void paramChanged(ConfigParameter*, int priority) override {
    priorities.push_back(priority);
    if (action) action();
  }

  std::vector<int> priorities;
  std::function<void()> action;
};

TEST(ParametersTest, ReadText) {
  Group g;
  const struct {
    ConfigParameter& param;
    const char *text, *value;
  } good[] = {{g.flag, "Off", "0"},
              {g.flag, nullptr, "1"},
              {g.flag, "no", "0"},
              {g.flag, "TRUE", "1"},
              {g.number, "0x7fffffff", "2147483647"},
              {g.number, "010", "8"},
              {g.number, " 7", "7"},
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
  EXPECT_TRUE(g.bytes.value().sensitive());

  const std::pair<ConfigParameter&, std::vector<const char*>> bad[] = {
      {g.flag, {"2", "01", " 1", "on "}},
      {g.number, {nullptr, "", " ", "-10", "2147483648", "18446744073709551621", "08", "5 "}},
      {g.side, {nullptr, "", "1", "Nones"}},
      {g.text, {nullptr}},
      {g.wide, {nullptr, "", "int64:1", "int64:000000000000000g", "INT64:0000000000000001"}},
      {g.bytes, {nullptr, "abc", "0g"}}};
  support::LogCapture log(200);
  for (const auto& [param, texts] : bad) {
    const String before = param.getValueStr();
    for (const char* text : texts) EXPECT_FALSE(param.setParam(text, 10)) << (text ? text : "null");
    EXPECT_EQ(param.getValueStr(), before);
  }
  EXPECT_EQ(log.take().at(0), "0 ConfigParameter: Bool parameter Flag: invalid value '2'");
  EXPECT_FALSE(g.number.setParam(-10, 10) || g.side.setParam(2, 10) || g.text.setParam(1, 10));
  EXPECT_EQ(test::thrownBy([&] { g.text.setParam("caf\xE9", 10); }),
            "BadUtf8: Bad UTF-8 string for text");
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
  Recorder recorder;
  g.number.addCallback(&recorder);
  EXPECT_TRUE(g.number.setParam("30", 30));
  EXPECT_TRUE(g.number.setParam("10", 10));
  EXPECT_EQ(g.number.value(), 30);
  EXPECT_TRUE(g.number.setParam("0xA", 10)) << "the same value is accepted";
  EXPECT_EQ(recorder.priorities, (std::vector<int>{30, 10})) << "but announced once";
  EXPECT_TRUE(g.number.unsetParam(30, true));
  EXPECT_EQ(g.number.value(), 10);
  EXPECT_FALSE(g.number.unsetParam(30, true) || g.number.unsetParam(0, true));
  EXPECT_TRUE(g.number.unsetParam(10, false));
  EXPECT_TRUE(g.number.setParam(1, -1));
  EXPECT_EQ((std::map<int, String>{{-1, "1"}, {0, "5"}}), g.number.getAllValues());
  EXPECT_EQ(recorder.priorities, (std::vector<int>{30, 10, 30, -1}));
}

TEST(ParametersTest, ChangesAreLoggedBeforeTheyAreAnnounced) {
  Group g;
  support::LogCapture log(200);
  Recorder recorder;
  Lines before;
  recorder.action = [&] { before = log.take(); };
  g.bytes.addCallback(&recorder);
  g.text.addCallback(&recorder);
  g.bytes.setParam("00ff", 10);
  EXPECT_EQ(before, Lines{"100 ConfigParameter: set Bytes(binary) to <binary>, priority 10"});
  g.text.setParam("a", 10);
  EXPECT_EQ(before, Lines{"100 ConfigParameter: set text(string) to a, priority 10"});
  g.text.setParam("b", 0);
  EXPECT_EQ(before, Lines{"110 ConfigParameter: set text(string) to b, priority 0"});
  g.text.unsetParam(10, true);
  EXPECT_EQ(before,
            Lines{"100 ConfigParameter: unset text(string) priority 10, now b, priority 0"});
}

TEST(XmlConfigTest, WritesEveryType) {
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
}

TEST(XmlConfigTest, ReadsBackWhatItWrote) {
  for (const char* odd : {"", " ", "&amp;", "<!-- -->", "]]>'\"", "\r\n\t", "\x01\x1F\x7F",
                          "\xF0\x9F\x98\x80", "&#0;"}) {
    Group from;
    from.text.setParam(odd, 10);
    from.flag.setParam("0", 30);
    from.number.setParam("-9", 7);
    from.side.setParam("left & RIGHT", 10);
    from.wide.setParam("int64:fedcba9876543210", 10);
    from.bytes.setParam("0001feff", 30);
    Group to;
    XmlConfig::read(from.written(), to.config);
    EXPECT_EQ(to.written(), from.written()) << odd;
    EXPECT_EQ(to.text.value(), odd);
  }
  Group g;
  XmlConfig::read(
      "\xEF\xBB\xBF<?xml version='1.0' encoding=\"UTF-8\"?>\r\n<!-- first --><config >"
      "<int max = '9'\tadvanced='false' description=''\n min='-9' name='NUMBER'>"
      "<!-- <value data='1'/> - > --><value priority='10' data='&#x37;' ></value></int >"
      "<bool locDesc='some_id' name='Flag' advanced='true'/></config><!--last-->\n",
      g.config);
  EXPECT_EQ(g.number.value(), 7) << "in any layout";
}

void expectRefused(const std::string& document) {
  Group g;
  const std::string before = g.written();
  EXPECT_EQ(test::thrownText([&] { XmlConfig::read(document, g.config); }),
            "Incompatible XML config")
      << document.substr(0, 200);
  EXPECT_EQ(g.written(), before) << document.substr(0, 200);
}

TEST(XmlConfigTest, AppliesNothingOfWhatDoesNotMatch) {
  const std::string number = "<int name='Number' description='' advanced='false'";
  const std::string good = number + "><value data='8' priority='10'/></int>";
  for (const std::string& bad :
       {std::string("<int name='Nothing' description='' advanced='false'/>"),
        std::string("<bool name='Number' description='' advanced='false'/>"),
        std::string("<int name='Number' description='x' advanced='false'/>"),
        std::string("<int name='Number' description='' advanced='true'/>"),
        std::string("<bool name='Flag' locDesc='other_id' advanced='true'/>"),
        number + " flags='noPolicy'/>", number + "><value data='-10' priority='10'/></int>",
        number + "><value data='1' priority='1 '/></int>", number + "><value data='1'/></int>",
        number + "><opt data='1'/></int>"})
    expectRefused("<config>" + good + bad + "</config>");
  expectRefused(
      "<config><string name='text' description='Say &lt;a> &amp; \"b\".' advanced='false' "
      "flags='noPolicy,zz'><value data='x' priority='30'/></string></config>");
}

TEST(XmlConfigTest, RefusesBrokenDocuments) {
  std::string deep;
  for (int i = 0; i < 100000; ++i) deep += "<config>";
  expectRefused(deep);
  expectRefused("<config>" + std::string(17 << 20, ' ') + "</config>");
  expectRefused(std::string("<config>\0</config>", 18));
  for (const char* document :
       {"<other/>", "<config/><config/>", "<config></confi>", "<config>text</config>",
        "<config><?pi?></config>", "<config>\xFF</config>", "<config><!-- </config>",
        "<!DOCTYPE config [<!ENTITY a 'aaaa'>]><config/>",
        "<config><int name='a' name='b'/></config>", "<config><int name='&nbsp;'/></config>",
        "<config><int name='&#xD800;'/></config>", "<config><int name='&#99999999999;'/></config>"})
    expectRefused(document);
  const std::string whole = Group().written();
  for (size_t length = 0; length + 1 < whole.size(); ++length)
    expectRefused(whole.substr(0, length));
}

}  // namespace
