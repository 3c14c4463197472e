#include "plat/XmlConfig.h"

#include <gtest/gtest.h>

#include <sstream>
#include <vector>

#include "plat/BinaryParameter.h"
#include "plat/BoolParameter.h"
#include "plat/Configuration.h"
#include "plat/EnumParameter.h"
#include "plat/Exception.h"
#include "plat/IntParameter.h"
#include "plat/S64Parameter.h"
#include "plat/StringParameter.h"
#include "support/Thrown.h"

namespace {

using namespace plat;

const char* const kSides[] = {"Left & right", "None", nullptr};

struct Group {
  Configuration config{"Test"};
  Configuration child{"Child"};
  StringParameter text{"text", "Say <a> & \"b\".", "t", false, "zz,noPolicy", &config};
  BoolParameter flag{"Flag", MessageId{"some_id"}, true, true, nullptr, &config};
  IntParameter number{"Number", "", 5, -9, 9, false, nullptr, &config};
  EnumParameter side{"side", "d", 1, kSides, false, nullptr, &config};
  S64Parameter wide{"Wide", "d", 258, false, nullptr, &config};
  BinaryParameter bytes{"Bytes", "d", {}, false, nullptr, &child};

  Group() {
    config.addChild(&child);
    config.setLogChanges(false);
    child.setLogChanges(false);
  }
  std::string written() const {
    std::ostringstream out;
    XmlConfig::write(out, config);
    return out.str();
  }
};

TEST(XmlConfig, WritesEveryType) {
  Group g;
  g.flag.setParam("off", 30);
  g.flag.setParam("off", 10);
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
    <value data="0" priority="10"/>
    <value data="0" priority="30"/>
</bool>
<int    name="Number"
        description=""
        advanced="false"
        min="-9"
        max="9">
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

TEST(XmlConfig, ReadsBackWhatItWrote) {
  const char* const oddTexts[] = {"",    " ",      "&amp;",        "<!-- -->",         "]]>",
                                  "'\"", "\r\n\t", "\x01\x1F\x7F", "\xF0\x9F\x98\x80", "a=b",
                                  "&#0;"};
  for (const char* odd : oddTexts) {
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
}

TEST(XmlConfig, ToleratesAnyLayout) {
  Group g;
  XmlConfig::read(
      "\xEF\xBB\xBF<?xml version='1.0' encoding=\"UTF-8\"?>\r\n<!-- first --><config >"
      "<int max = '9'\tadvanced='false' description=''\n min='-9' name='NUMBER'>"
      "<!-- <value data='1'/> - > --><value priority='10' data='&#x37;' ></value></int >"
      "<bool locDesc='some_id' name='Flag' advanced='true'/>"
      "<binary name='Bytes' description='d' advanced='false'><value data='ff' priority='10'/>"
      "</binary></config><!--last-->\n",
      g.config);
  EXPECT_EQ(g.number.value(), 7);
  EXPECT_EQ(g.bytes.getStoredTextAt(10), "ff");
  EXPECT_NO_THROW(XmlConfig::read("<config/>", g.config));
}

TEST(XmlConfig, RefusesWhatDoesNotMatchAndAppliesNothing) {
  const std::string good =
      "<int name='Number' description='' advanced='false'><value data='8' priority='10'/></int>";
  const std::string number = "<int name='Number' description='' advanced='false'";
  const std::string text =
      "<string name='text' description='Say &lt;a> &amp; \"b\".' advanced='false'";
  std::vector<std::string> bad = {
      "<int name='Nothing' description='' advanced='false'/>",
      "<int description='' advanced='false'/>",
      "<bool name='Number' description='' advanced='false'/>",
      "<int name='Number' description='x' advanced='false'/>",
      "<int name='Number' locDesc='' advanced='false'/>",
      "<int name='Number' advanced='false'/>",
      "<int name='Number' description='' advanced='true'/>",
      "<int name='Number' description=''/>",
      number + " flags='noPolicy'/>",
      "<bool name='Flag' locDesc='other_id' advanced='true'/>",
      "<bool name='Flag' locDesc='some_id' advanced='true' min='0'/>",
      text + "/>",
      text + " flags='noPolicy,zz'><value data='x' priority='30'/></string>"};
  for (const char* inside :
       {"<value data='10' priority='10'/>", "<value data='' priority='10'/>",
        "<value data='1' priority='x'/>", "<value data='1' priority='1 '/>",
        "<value data='1' priority=''/>", "<value data='1' priority='2147483648'/>",
        "<value data='1'/>", "<value priority='1'/>", "<opt data='1'/>",
        "<value data='1' priority='1'><value data='1' priority='1'/></value>"})
    bad.push_back(number + ">" + inside + "</int>");
  for (const std::string& element : bad) {
    Group g;
    const std::string before = g.written();
    EXPECT_EQ(test::thrownText(
                  [&] { XmlConfig::read("<config>" + good + element + "</config>", g.config); }),
              "Incompatible XML config")
        << element;
    EXPECT_EQ(g.written(), before) << element;
  }
  Group g;
  EXPECT_NO_THROW(XmlConfig::read("<config>" + good + "</config>", g.config));
}

TEST(XmlConfig, RefusesBrokenDocuments) {
  std::string deep;
  for (int i = 0; i < 100000; ++i) deep += "<config>";
  const std::string huge = "<config>" + std::string(17 << 20, ' ') + "</config>";
  const std::string embedded("<config>\0</config>", 18);
  std::vector<std::string> documents = {"",   " ", "config", embedded, "<config>\xFF</config>",
                                        deep, huge};
  std::istringstream more(R"(<other/>
<config>
<config
<config/
<config/><config/>
<config/>x
x<config/>
<config></confi>
<config x='1'/>
<config>text</config>
<config><![CDATA[]]></config>
<config><?pi?></config>
<!DOCTYPE config [<!ENTITY a 'aaaa'>]><config/>
<?xml version='1.0'
<?xmlfoo?><config/>
 <?xml version='1.0'?><config/>
<config><!-- </config>
<config><int name='a' name='b'/></config>
<config><int name=a/></config>
<config><int name='a/></config>
<config><int name='<'/></config>
<config><int name='&'/></config>
<config><int name='&nbsp;'/></config>
<config><int name='&#0;'/></config>
<config><int name='&#xD800;'/></config>
<config><int name='&#x110000;'/></config>
<config><int name='&#99999999999;'/></config>
<config><int name='&#-1;'/></config>
<config><int name='a'description='' advanced='false'/></config>)");
  for (std::string line; std::getline(more, line);) documents.push_back(line);
  for (const std::string& document : documents) {
    Group g;
    EXPECT_EQ(test::thrownText([&] { XmlConfig::read(document, g.config); }),
              "Incompatible XML config")
        << document.substr(0, 80);
  }
  Group g;
  const std::string whole = g.written();
  for (size_t length = 0; length + 1 < whole.size(); ++length)
    EXPECT_THROW(XmlConfig::read(whole.substr(0, length), g.config), Exception) << length;
}

}  // namespace
