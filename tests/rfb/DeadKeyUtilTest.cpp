#include "rfb/DeadKeyUtil.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <optional>
#include <set>
#include <string>

#include "rfb/DeadKeyTables.h"
#include "rfb/KeysymAlternates.h"
#include "support/Composer.h"
#include "support/LogCapture.h"
#include "support/ParameterValue.h"
#include "support/TempDir.h"

namespace rfb {
namespace {

TEST(DeadKeyTables, AreWhatApplicationsCompose) {
  constexpr uint32_t kDialytikaTonos = 0x1000344;
  const support::Composer composer;
  std::set<uint32_t> composed;
  for (const auto& list :
       {kLatin1Compositions, kLatin2Compositions, kLatin3Compositions, kLatin4Compositions,
        kWelshCompositions, kLatin9Compositions, kGreekCompositions}) {
    for (const Composition& row : list) {
      SCOPED_TRACE(support::textOf(row.composed));
      EXPECT_TRUE(composed.insert(row.composed).second);
      if (row.base == ' ') {
        EXPECT_EQ(DeadKeyUtil().deadKeysym(row.composed), row.dead);
        continue;
      }
      // Applications know the mark with two accents as two keys only.
      std::string text = composer.compose(row.dead, row.base);
      if (row.dead == kDialytikaTonos) text = row.base == XKB_KEY_Greek_iota ? "ΐ" : "ΰ";
      EXPECT_EQ(text, support::textOf(row.composed));
    }
  }
  EXPECT_EQ(composed.size(), 218u);
  EXPECT_EQ(kSpacingDeads.size(), 20u);
  for (const auto& [accent, dead] : {std::pair('`', XKB_KEY_dead_grave),
                                     {'\'', XKB_KEY_dead_acute},
                                     {'^', XKB_KEY_dead_circumflex},
                                     {'~', XKB_KEY_dead_tilde},
                                     {'"', XKB_KEY_dead_diaeresis}}) {
    EXPECT_EQ(DeadKeyUtil().deadKeysym(static_cast<uint32_t>(accent)), uint32_t(dead)) << accent;
  }
}

TEST(KeysymAlternates, ArePairs) {
  int count = 0;
  for (uint32_t keysym = 1; keysym <= 0xffff; ++keysym) {
    const uint32_t other = alternateKeysym(keysym);
    if (!other) continue;
    EXPECT_EQ(alternateKeysym(other), keysym) << std::hex << keysym;
    if (keysym > XKB_KEY_KP_Space && keysym <= XKB_KEY_KP_Equal) {
      EXPECT_EQ(support::textOf(keysym), support::textOf(other)) << std::hex << keysym;
    }
    ++count;
  }
  EXPECT_EQ(count, 84);
  EXPECT_EQ(alternateKeysym(XKB_KEY_Mode_switch), uint32_t{XKB_KEY_ISO_Level3_Shift});
  EXPECT_EQ(alternateKeysym(XKB_KEY_Alt_R), uint32_t{XKB_KEY_Alt_L});
  EXPECT_EQ(alternateKeysym(XKB_KEY_KP_Begin), uint32_t{XKB_KEY_Begin});
}

class DeadKeyFile : public testing::Test {
 protected:
  DeadKeyUtil load(const std::string& contents, const std::string& layout = "") {
    std::ofstream(directory_ / "keys.json") << contents;
    return loadFrom("keys.json", layout);
  }
  DeadKeyUtil loadFrom(const std::string& name, const std::string& layout = "") {
    parameter_.emplace("DeadKeyFile", (directory_ / name).c_str());
    log_.clear();
    return DeadKeyUtil(layout);
  }

  std::optional<support::ParameterValue> parameter_;
  support::TempDir directory_;
  support::LogCapture log_;
};

TEST_F(DeadKeyFile, ReplacesSpacingAndAddsCompositions) {
  using Spelling = DeadKeyUtil::Spelling;
  const DeadKeyUtil util = load(R"({"deadKeys": [["0x2C", "fe50"], ["2c", "FE51"]],
                                   "comps": [["0xe9", "0xfe50", "78"], ["1001234", "fe63", "0X7a"]],
                                   "other": null})");
  EXPECT_EQ(util.deadKeysym(0x2c), 0xfe50u);
  EXPECT_EQ(util.deadKeysym('`'), 0u);
  EXPECT_EQ(*util.spelling(0xe9), (Spelling{0xfe50, 0x78}));
  EXPECT_EQ(*util.spelling(0x1001234), (Spelling{0xfe63, 0x7a}));
  EXPECT_EQ(*util.spelling(0xe8), (Spelling{0xfe50, 'e'}));
  EXPECT_EQ(log_.take(),
            (std::vector<std::string>{
                "30 DeadKeyUtil: Reading dead key info from " + directory_ / "keys.json",
                "100 DeadKeyUtil: Got 2 dead keys", "100 DeadKeyUtil: spacing 0x2c dead 0xfe50",
                "100 DeadKeyUtil: spacing 0x2c dead 0xfe51", "100 DeadKeyUtil: Got 2 comps",
                "100 DeadKeyUtil: comb 0xe9 dead 0xfe50 base 0x78",
                "100 DeadKeyUtil: comb 0x1001234 dead 0xfe63 base 0x7a"}));

  const std::string layouts = R"({"deadKeys": [["1", "2"]], "deadKeys-xy": [["1", "3"]]})";
  EXPECT_EQ(load(layouts, "xy").deadKeysym(1), 3u);
  EXPECT_EQ(load(layouts, "zz").deadKeysym(1), 2u);
}

TEST_F(DeadKeyFile, AnyFaultLeavesTheBuiltInTables) {
  const auto expectBuiltIn = [this](const DeadKeyUtil& util, const std::string& what) {
    EXPECT_EQ(util.deadKeysym(1), 0u) << what;
    EXPECT_EQ(util.deadKeysym('`'), 0xfe50u) << what;
    EXPECT_EQ(util.spelling(1), nullptr) << what;
    EXPECT_EQ(log_.count("Error reading dead key file: ", 0, "DeadKeyUtil"), 1) << what;
  };
  for (const char* deadKeys :
       {"[[1, 2]]", "[[\"1\", \"2x\"]]", "[[\"100000000\", \"2\"]]",
        "[[\"1\", \"2\"]], \"comps\": {}", "[[\"1\", \"2\"]], \"comps\": [[\"1\", \"2\"]]"}) {
    expectBuiltIn(load(std::string("{\"deadKeys\": ") + deadKeys + "}"), deadKeys);
  }
  ASSERT_EQ(mkfifo((directory_ / "pipe").c_str(), 0600), 0);
  for (const auto& [name, error] :
       {std::pair("none", "open: No such file or directory"), {"pipe", "not a regular file"}}) {
    expectBuiltIn(loadFrom(name), name);
    EXPECT_TRUE(log_.has(error)) << log_.str();
  }
}

}  // namespace
}  // namespace rfb
