#include <gtest/gtest.h>

#include "svr/ScreenSwitch.h"
#include "svr/WantedModes.h"

namespace {

TEST(DisplaySizeTest, ReadsSizesAndKnowsTheirMillimetres) {
  for (const char* text : {"32768x1", "4294967297x600", "0x600", "800", "x600", "800x600x24"}) {
    EXPECT_FALSE(svr::DisplaySize::parse(text)) << text;
  }
  EXPECT_EQ(svr::DisplaySize::parse("32767x0600"), (svr::DisplaySize{32767, 600}));
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
  const svr::WantedModes wanted(svr::DisplaySize{800, 600},
                                " 1024x768 ,\t0800x600,800x600,,nonsense,33000x1,");
  EXPECT_EQ(wanted.names(),
            (std::vector<std::string>{"800x600_ruvo", "1024x768_ruvo", "0800x600_ruvo"}));
}

TEST(ScreenSwitchTest, PlacesCrtcsWhereTheyFit) {
  const struct {
    rfb::Point from;
    uint16_t rotation;
    rfb::Point to;
  } cases[] = {{{1024, 0}, 1, {0, 0}}, {{500, 10}, 2, {500, 0}}, {{900, 0}, 8, {700, 0}}};
  for (const auto& c : cases) {
    svr::RandrScreen::State before;
    before.crtcs = {{11, c.from, 5, c.rotation, {21, 22}}, {12, {}, 0, 1, {}}};
    const auto planned = svr::ScreenSwitch::plan(before, {1600, 900}, 7);
    const svr::RandrScreen::Crtc expected{11, c.to, 7, c.rotation, {21, 22}};
    EXPECT_EQ(planned, std::vector<svr::RandrScreen::Crtc>{expected}) << c.from.x;
  }
}

}  // namespace
