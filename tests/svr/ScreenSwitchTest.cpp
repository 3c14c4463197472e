#include <gtest/gtest.h>

#include "svr/ScreenSwitch.h"
#include "svr/WantedModes.h"

namespace {

TEST(DisplaySizeTest, ReadsSizesAndKnowsTheirMillimetres) {
  for (const char* text : {"32768x1", "4294967297x600", "0x600", "800", "x600", "800x600x24"}) {
    EXPECT_FALSE(svr::DisplaySize::parse(text)) << text;
  }
  EXPECT_EQ(svr::DisplaySize::parse("32767x0600"), (svr::DisplaySize{32767, 600}));
  EXPECT_EQ(svr::DisplaySize::parse("1x1"), (svr::DisplaySize{1, 1}));
  EXPECT_EQ((svr::DisplaySize{1920, 1080}.physical()), (svr::DisplaySize{508, 285}));
}

TEST(ModeTimingsTest, StayInTheirBits) {
  const svr::ModeTimings usual({1600, 900});
  EXPECT_EQ(usual.hTotal, 1760u);
  EXPECT_EQ(usual.vTotal, 925u);
  EXPECT_EQ(usual.dotClock, 97680000u);
  EXPECT_EQ(svr::ModeTimings({32767, 32767}).dotClock, UINT32_MAX);
}

TEST(WantedModesTest, NamesThem) {
  const svr::WantedModes wanted({{800, 600}}, " 1024x768 ,\t0800x600,800x600,,nonsense,33000x1,");
  EXPECT_EQ(wanted.names(),
            (std::vector<std::string>{"800x600_ruvo", "1024x768_ruvo", "0800x600_ruvo"}));
}

// A mode is chosen for what a CRTC makes of it.
TEST(ScreenSwitchTest, ShowsAllOfTheScreenOnEveryCrtc) {
  svr::RandrScreen::State before;
  before.modes = {{7, "a", {900, 1600}}, {8, "b", {1600, 900}}, {9, "c", {900, 1600}}};
  before.outputs = {{21, {8}}, {22, {8, 9}}, {23, {9}}};
  before.crtcs = {{11, {1024, 0}, 5, 1, {21, 22}}, {12, {500, 9}, 5, 2, {23}}, {13, {}, 0, 1, {}}};
  const svr::DisplaySize screen{1600, 900};
  EXPECT_EQ(before.modeSizes(screen), (std::vector<svr::DisplaySize>{{1600, 900}, {900, 1600}}));
  EXPECT_TRUE(before.canShow(screen));
  EXPECT_EQ(svr::ScreenSwitch::plan(before, screen),
            (std::vector<svr::RandrScreen::Crtc>{{11, {}, 8, 1, {21, 22}}, {12, {}, 9, 2, {23}}}));
  before.crtcs[1].rotation = 4;  // upside down, but as wide as before
  EXPECT_FALSE(before.canShow(screen));
}

}  // namespace
