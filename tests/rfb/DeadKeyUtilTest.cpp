#include "rfb/DeadKeyUtil.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <map>
#include <set>
#include <string>

#include "plat/Configuration.h"
#include "rfb/DeadKeyTables.h"
#include "rfb/KeysymAlternates.h"
#include "rfb/Unicode.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace rfb {
namespace {

const std::map<char32_t, uint32_t> deadOfMark = {
    {0x300, 0xfe50}, {0x301, 0xfe51}, {0x302, 0xfe52}, {0x303, 0xfe53}, {0x304, 0xfe54},
    {0x306, 0xfe55}, {0x307, 0xfe56}, {0x308, 0xfe57}, {0x30a, 0xfe58}, {0x30b, 0xfe59},
    {0x30c, 0xfe5a}, {0x327, 0xfe5b}, {0x328, 0xfe5c}};
constexpr uint32_t deadStroke = 0xfe63, dialytikaTonos = 0x1000344;

struct List {
  const char* name;
  std::span<const Composition> rows;
  size_t size;
  uint32_t firstKeysym, lastKeysym;  // where its letters are
};
const List lists[] = {
    {"Latin 1", latin1Compositions, 62, 0xa0, 0xff},
    {"Latin 2", latin2Compositions, 57, 0x1a0, 0x1ff},
    {"Latin 3", latin3Compositions, 21, 0x2a0, 0x2ff},
    {"Latin 4", latin4Compositions, 30, 0x3a0, 0x3ff},
    {"Welsh", welshCompositions, 26, 0x1000100, 0x1001fff},
    {"Latin 9", latin9Compositions, 1, 0x13be, 0x13be},
    {"Greek", greekCompositions, 21, 0x7a0, 0x7ff},
};

TEST(DeadKeyTables, AgreeWithUnicode) {
  std::set<uint32_t> composed;
  for (const List& list : lists) {
    SCOPED_TRACE(list.name);
    EXPECT_EQ(list.rows.size(), list.size);
    std::map<uint32_t, Composition> byKeysym;
    for (const Composition& row : list.rows) {
      EXPECT_TRUE(composed.insert(row.composed).second) << std::hex << row.composed;
      byKeysym[row.composed] = row;
    }
    // Every letter that Unicode decomposes into a base and a mark is in the list of its keysym.
    size_t letters = 0;
    for (const unicode::Decomposition& d : unicode::decompositions()) {
      const uint32_t keysym = unicode::keysymOf(d.composed);
      if (keysym < list.firstKeysym || keysym > list.lastKeysym) continue;
      // Iota and upsilon with both marks are spelled from the plain letter, see below.
      if (d.base == U'ϊ' || d.base == U'ϋ' || d.base == U'¨') continue;
      const auto found = byKeysym.find(keysym);
      ASSERT_NE(found, byKeysym.end()) << std::hex << keysym;
      EXPECT_EQ(found->second.dead, deadOfMark.at(d.mark)) << std::hex << keysym;
      EXPECT_EQ(found->second.base, unicode::keysymOf(d.base)) << std::hex << keysym;
      letters++;
    }
    // The rest: accents alone, and what Unicode does not decompose so.
    for (const Composition& row : list.rows) {
      if (row.dead == deadStroke) {
        static const std::map<char32_t, char32_t> strokes = {
            {U'Ł', U'L'}, {U'ł', U'l'}, {U'Đ', U'D'}, {U'đ', U'd'}, {U'Ħ', U'H'}, {U'ħ', U'h'}};
        EXPECT_EQ(strokes.at(unicode::characterOf(row.composed)), unicode::characterOf(row.base));
      } else if (row.dead == dialytikaTonos) {
        static const std::map<char32_t, char32_t> both = {{U'΅', U' '}, {U'ΐ', U'ι'}, {U'ΰ', U'υ'}};
        EXPECT_EQ(both.at(unicode::characterOf(row.composed)), unicode::characterOf(row.base));
      } else if (row.base == 0x20) {
        EXPECT_EQ(DeadKeyUtil().deadKeysym(row.composed), row.dead) << std::hex << row.composed;
      } else {
        continue;
      }
      letters++;
    }
    EXPECT_EQ(letters, list.size);
  }
  EXPECT_EQ(composed.size(), 218u);
}

TEST(DeadKeyTables, SpacingAccents) {
  EXPECT_EQ(spacingDeads.size(), 20u);
  // Characters with a mark of their own, by their names in Unicode.
  const std::pair<std::u32string_view, char32_t> cases[] = {
      {U"`", 0x300}, {U"´'\u0384", 0x301}, {U"^\u02c6", 0x302}, {U"~\u02dc", 0x303}, {U"¯", 0x304},
      {U"˘", 0x306}, {U"˙", 0x307},        {U"¨\"", 0x308},     {U"°\u02da", 0x30a}, {U"˝", 0x30b},
      {U"ˇ", 0x30c}, {U"¸", 0x327},        {U"˛", 0x328}};
  const DeadKeyUtil util;
  for (const auto& [spacings, mark] : cases)
    for (const char32_t c : spacings)
      EXPECT_EQ(util.deadKeysym(unicode::keysymOf(c)), deadOfMark.at(mark)) << uint32_t{c};
  EXPECT_EQ(util.deadKeysym(0x7ae), dialytikaTonos);
  EXPECT_EQ(util.deadKeysym('e'), 0u);
}

TEST(KeysymAlternates, ArePairs) {
  std::set<uint32_t> all;
  for (uint32_t keysym = 1; keysym <= 0xffff; keysym++) {
    const uint32_t other = alternateKeysym(keysym);
    if (!other) continue;
    EXPECT_EQ(alternateKeysym(other), keysym) << std::hex << keysym;
    all.insert(keysym);
  }
  EXPECT_EQ(all.size(), 84u);
}

// Sets the parameter to a file with the contents given.
class DeadKeyFile : public ::testing::Test {
 public:
  ~DeadKeyFile() override { parameter_.unsetParam(10, false); }

 protected:
  DeadKeyUtil load(const std::string& contents, const std::string& layout = "") {
    std::ofstream(directory_ / "keys.json") << contents;
    return loadFrom(directory_ / "keys.json", layout);
  }
  DeadKeyUtil loadFrom(const std::string& path, const std::string& layout = "") {
    EXPECT_TRUE(parameter_.setParam(path.c_str(), 10));
    return DeadKeyUtil(layout);
  }

  plat::ConfigParameter& parameter_ = plat::Configuration::global().getParam("DeadKeyFile");
  test::TempDir directory_;
  support::LogCapture log_;
};

using Spelling = DeadKeyUtil::Spelling;

TEST_F(DeadKeyFile, ReplacesSpacingAndAddsCompositions) {
  const DeadKeyUtil util = load(R"({"deadKeys": [["0x2C", "fe50"], ["2c", "FE51"]],
                                   "comps": [["0xe9", "0xfe50", "78"], ["1001234", "fe63", "0X7a"]],
                                   "other": null})");
  EXPECT_EQ(util.deadKeysym(0x2c), 0xfe50u);
  EXPECT_EQ(util.deadKeysym('`'), 0u);
  EXPECT_EQ(*util.spelling(0xe9), (Spelling{0xfe50, 0x78}));
  EXPECT_EQ(*util.spelling(0x1001234), (Spelling{0xfe63, 0x7a}));
  EXPECT_EQ(*util.spelling(0xe8), (Spelling{0xfe50, 'e'}));
  EXPECT_TRUE(log_.has("Reading dead key info from " + directory_.path(), 30, "DeadKeyUtil"));
  EXPECT_TRUE(log_.has("Got 2 dead keys", 100, "DeadKeyUtil"));
  EXPECT_TRUE(log_.has("spacing 0x2c dead 0xfe51"));
  EXPECT_TRUE(log_.has("Got 2 comps"));
  EXPECT_TRUE(log_.has("comb 0x1001234 dead 0xfe63 base 0x7a"));
}

TEST_F(DeadKeyFile, PrefersTheLayoutsOwn) {
  const std::string text = R"({"deadKeys": [["1", "2"]], "deadKeys-xy": [["1", "3"]]})";
  EXPECT_EQ(load(text, "xy").deadKeysym(1), 3u);
  EXPECT_EQ(load(text, "zz").deadKeysym(1), 2u);
}

TEST_F(DeadKeyFile, AnyFaultLeavesTheBuiltInTables) {
  const std::string comps = R"({"deadKeys": [["1", "2"]], "comps": )";
  const std::string faults[] = {"",
                                "[]",
                                R"({"deadKeys": [[1, 2]]})",
                                R"({"deadKeys": ["12"]})",
                                comps + R"([["1", "2", "xyz"]]})",
                                comps + R"([["1", "2"]]})",
                                comps + "{}}",
                                comps + R"([["1", "2", "123456789"]]})",
                                comps + R"([["1", "2", "0x"]]})",
                                comps + R"([["1", "2", "-1"]]})",
                                comps + "[],}"};
  for (const std::string& fault : faults) {
    log_.clear();
    const DeadKeyUtil util = load(fault);
    EXPECT_EQ(util.deadKeysym(1), 0u) << fault;
    EXPECT_EQ(util.deadKeysym('`'), 0xfe50u) << fault;
    EXPECT_EQ(util.spelling(1), nullptr) << fault;
    EXPECT_TRUE(log_.has("Error reading dead key file: ", 0, "DeadKeyUtil")) << fault;
  }
}

TEST_F(DeadKeyFile, UnreadableFiles) {
  ASSERT_EQ(mkfifo((directory_ / "pipe").c_str(), 0600), 0);
  std::ofstream(directory_ / "big") << std::string((1 << 20) + 1, ' ');
  const std::pair<const char*, const char*> cases[] = {{"none", "open: No such file or directory"},
                                                       {"", "open: Is a directory"},
                                                       {"pipe", "not a regular file"},
                                                       {"big", "more than 1048576 bytes"}};
  for (const auto& [name, error] : cases) {
    EXPECT_EQ(loadFrom(directory_ / name).deadKeysym('`'), 0xfe50u);
    EXPECT_TRUE(log_.has(std::string("Error reading dead key file: ") + error)) << log_.str();
  }
}

}  // namespace
}  // namespace rfb
