#include "svr/DisplayMode.h"

#include <gtest/gtest.h>

#include "plat/Configuration.h"
#include "plat/Exception.h"
#include "support/LogCapture.h"
#include "svr/FakeRandr.h"
#include "svr/ScreenSwitch.h"

namespace {

using Names = std::vector<std::string>;

TEST(DisplaySizeTest, ReadsSizes) {
  const struct {
    const char* text;
    svr::DisplaySize size;  // 0 by 0: none
  } cases[] = {
      {"1600x900", {1600, 900}},
      {"1x1", {1, 1}},
      {"32767x32767", {32767, 32767}},
      {"00800x0600", {800, 600}},
      {"32768x1", {}},
      {"4294967297x600", {}},
      {"0x600", {}},
      {"800x0", {}},
      {"-800x600", {}},
      {"+800x600", {}},
      {"800x-600", {}},
      {"800", {}},
      {"x", {}},
      {"", {}},
      {"800x", {}},
      {"x600", {}},
      {"800X600", {}},
      {"800 x 600", {}},
      {"800x600x24", {}},
      {"800x600+0+0", {}},
  };
  for (const auto& c : cases)
    EXPECT_EQ(svr::DisplaySize::parse(c.text).value_or(svr::DisplaySize{}), c.size) << c.text;
}

TEST(DisplaySizeTest, KnowsItsMillimetres) {
  EXPECT_EQ((svr::DisplaySize{1920, 1080}.physical()), (svr::DisplaySize{508, 285}));
  EXPECT_EQ((svr::DisplaySize{1, 32767}.physical()), (svr::DisplaySize{0, 8669}));
}

TEST(ModeTimingsTest, StayInTheirBits) {
  const svr::ModeTimings usual({1600, 900});
  EXPECT_EQ(usual.hSyncStart, 1648u);
  EXPECT_EQ(usual.hSyncEnd, 1680u);
  EXPECT_EQ(usual.hTotal, 1760u);
  EXPECT_EQ(usual.vSyncStart, 903u);
  EXPECT_EQ(usual.vSyncEnd, 908u);
  EXPECT_EQ(usual.vTotal, 925u);
  EXPECT_EQ(usual.dotClock, 97680000u);
  EXPECT_EQ(svr::ModeTimings({32767, 32767}).dotClock, UINT32_MAX);
}

TEST(WantedModesTest, NamesThem) {
  const struct {
    std::optional<svr::DisplaySize> requested;
    const char* list;
    Names names;
  } cases[] = {
      {{}, "", {}},
      {{{800, 600}}, "", {"800x600_ruvo"}},
      {{}, "800x600", {"800x600_ruvo"}},
      {{{800, 600}},
       " 1024x768 ,\t0800x600,800x600",
       {"800x600_ruvo", "1024x768_ruvo", "0800x600_ruvo"}},
      {{}, ",,nonsense,1x,0x1,33000x1, ,640x480,", {"640x480_ruvo"}},
  };
  for (const auto& c : cases)
    EXPECT_EQ(svr::WantedModes(c.requested, c.list).names(), c.names) << c.list;
}

TEST(ScreenSwitchTest, PlacesCrtcs) {
  const struct {
    rfb::Point from;
    uint16_t rotation;
    rfb::Point to;
  } cases[] = {
      {{0, 0}, 1, {0, 0}},     {{1024, 0}, 1, {0, 0}},   {{100, 300}, 4, {0, 0}},
      {{-20, -5}, 1, {0, 0}},  {{500, 10}, 2, {500, 0}}, {{700, 0}, 8, {700, 0}},
      {{900, 0}, 8, {700, 0}},
  };
  for (const auto& c : cases) {
    FakeRandr screen({"1600x900"}, 2);
    screen.show(0, "1600x900", c.from, c.rotation);
    const svr::RandrScreen::Crtc before = screen.state.crtcs[0];
    const auto planned = svr::ScreenSwitch::plan(screen.state, {1600, 900}, 7);
    ASSERT_EQ(planned.size(), 1u) << "what is off stays off";
    EXPECT_EQ(planned[0].position, c.to) << c.from.x << "," << c.from.y << " " << c.rotation;
    EXPECT_EQ(planned[0].rotation, c.rotation);
    EXPECT_EQ(planned[0].outputs, before.outputs);
    EXPECT_EQ(planned[0].mode, 7u);
  }
}

class DisplayModeTest : public testing::Test, public svr::DisplayMode::Callback {
 protected:
  ~DisplayModeTest() override { sizes().unsetParam(plat::kPriorityPreference, true); }

  static plat::ConfigParameter& sizes() { return plat::Configuration::global().getParam("RandR"); }

  // Two monitors side by side, a third one that is off.
  void build() {
    auto owned = std::make_unique<FakeRandr>(Names{"1024x768", "800x600"}, 3);
    screen = owned.get();
    screen->show(0, "1024x768", {0, 0});
    screen->show(1, "800x600", {1024, 0});
    mode.reset();
    mode.emplace(*this, std::move(owned));
  }
  static void list(const char* text) {
    ASSERT_TRUE(sizes().setParam(text, plat::kPriorityPreference));
  }
  void displayModesChanged() override {
    EXPECT_EQ(screen->grabs, 0);
    ++reports;
  }

  support::LogCapture log{100};
  FakeRandr* screen = nullptr;
  std::optional<svr::DisplayMode> mode;
  int reports = 0;
};

TEST_F(DisplayModeTest, SwitchesToAModeThatExists) {
  build();
  mode->setDisplayMode(800, 600);
  EXPECT_EQ(screen->shown(), (Names{"800x600 at 0,0", "800x600 at 0,0"}));
  EXPECT_EQ(screen->state.size, (svr::DisplaySize{800, 600}));
  EXPECT_EQ(screen->state.physical, (svr::DisplaySize{211, 158}));
  EXPECT_EQ(screen->ownModes(), Names());
  EXPECT_EQ(reports, 0);
  EXPECT_EQ(log.take(), (Names{"30 Randr: Setting display mode to 800x600"}));
}

TEST_F(DisplayModeTest, MakesModesAndForgetsThem) {
  build();
  mode->setDisplayMode(1600, 900);
  EXPECT_EQ(screen->modeOf(1), "1600x900_ruvo");
  EXPECT_EQ(log.take(), (Names{"30 Randr: Setting display mode to 1600x900",
                               "30 Randr: Added mode 1600x900_ruvo to 3 outputs"}));
  mode->setDisplayMode(1601, 901);
  EXPECT_EQ(screen->shown(), (Names{"1601x901 at 0,0", "1601x901 at 0,0"}));
  EXPECT_EQ(screen->ownModes(), Names{"1601x901_ruvo"});
  EXPECT_EQ(log.take(), (Names{"30 Randr: Setting display mode to 1601x901",
                               "30 Randr: Added mode 1601x901_ruvo to 3 outputs",
                               "30 Randr: Deleted mode 1600x900_ruvo from 3 outputs"}));
  EXPECT_EQ(reports, 3);

  // An own mode that a later request does not need stays until modes are next updated.
  mode->setDisplayMode(800, 600);
  EXPECT_EQ(screen->ownModes(), Names{"1601x901_ruvo"});
  list("1280x720");
  EXPECT_EQ(screen->ownModes(), Names{"1280x720_ruvo"});
}

TEST_F(DisplayModeTest, KeepsTheListedModes) {
  list("1280x720, 1440x900");
  build();
  mode->updateModes();
  EXPECT_EQ(screen->ownModes(), (Names{"1280x720_ruvo", "1440x900_ruvo"}));
  EXPECT_EQ(reports, 1);
  mode->updateModes();
  EXPECT_EQ(reports, 1) << "nothing was missing";

  mode->setDisplayMode(1440, 900);
  EXPECT_EQ(screen->modeOf(0), "1440x900_ruvo");
  list("640x480");
  EXPECT_EQ(screen->ownModes(), (Names{"1440x900_ruvo", "640x480_ruvo"})) << "one is in use";
  mode->setDisplayMode(900, 700);
  EXPECT_EQ(screen->ownModes(), (Names{"640x480_ruvo", "900x700_ruvo"}));
  list("");
  EXPECT_EQ(screen->ownModes(), Names{"900x700_ruvo"});
}

TEST_F(DisplayModeTest, GivesAModeBackToItsOutputs) {
  build();
  list("1600x900");
  const uint32_t own = screen->modeId("1600x900_ruvo");
  std::erase(screen->state.outputs[1].modes, own);
  mode->setDisplayMode(1600, 900);
  EXPECT_EQ(screen->modeOf(1), "1600x900_ruvo");
  EXPECT_EQ(screen->modeId("1600x900_ruvo"), own);

  // A size that only some monitors have gets a mode for all.
  std::erase(screen->state.outputs[1].modes, screen->modeId("800x600"));
  mode->setDisplayMode(800, 600);
  EXPECT_EQ(screen->modeOf(0), "800x600_ruvo");
  EXPECT_EQ(screen->modeOf(1), "800x600_ruvo");
}

TEST_F(DisplayModeTest, RefusesAndLeavesTheScreen) {
  const struct {
    const char* what;
    uint32_t width, height;
    std::function<void(FakeRandr&)> prepare;
    bool logged;
  } cases[] = {
      {"no width", 0, 600, {}, false},
      {"no height", 800, 0, {}, false},
      {"not an X size", 32768, 600, {}, false},
      {"far from an X size", 0xFFFFFFFF, 0xFFFFFFFF, {}, false},
      {"too large", 4097, 600, {}, true},
      {"too small", 7, 7, {}, true},
      {"refused by the outputs", 900, 700,
       [](FakeRandr& fake) { fake.outputsRefuseNewModes = true; }, true},
      {"a monitor on its side", 1600, 900,
       [](FakeRandr& fake) {
         fake.show(1, "800x600", {1024, 0}, 2);
       },
       true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    build();
    if (c.prepare) c.prepare(*screen);
    const svr::RandrScreen::State before = screen->state;
    log.clear();
    mode->setDisplayMode(c.width, c.height);
    EXPECT_EQ(screen->state.crtcs, before.crtcs);
    EXPECT_EQ(screen->state.size, before.size);
    EXPECT_EQ(screen->state.physical, before.physical);
    EXPECT_EQ(screen->ownModes(), Names());
    EXPECT_EQ(screen->grabs, 0);
    const std::string text = plat::format("Unable to set display mode to %ux%u", c.width, c.height);
    EXPECT_EQ(log.count(text, 0, "Randr"), c.logged ? 1 : 0) << log.str();
    EXPECT_EQ(log.has("Setting display mode"), c.logged);
  }
}

TEST_F(DisplayModeTest, TurnedMonitorsStayTurned) {
  build();
  screen->anyPosition = true;
  screen->show(0, "1024x768", {0, 0}, 2);
  screen->show(1, "800x600", {768, 0}, 4);
  mode->setDisplayMode(900, 1600);
  EXPECT_EQ(screen->shown(), (Names{"900x1600 at 0,0 rotation 2", "900x1600 at 0,0 rotation 4"}));
}

// Whichever request fails, nothing stays dark, and no mode that is of no use is left.
TEST_F(DisplayModeTest, SurvivesEveryFailure) {
  list("1280x720");
  for (const bool failsOn : {false, true}) {
    int failed = 0;
    for (int at = 1;; at++) {
      SCOPED_TRACE(plat::format("change %d fails%s", at, failsOn ? ", and all later" : ""));
      build();
      mode->setDisplayMode(900, 700);
      const svr::RandrScreen::State before = screen->state;
      screen->changes = 0;
      screen->failAt = at;
      screen->failsOn = failsOn;
      log.clear();
      mode->setDisplayMode(1600, 900);
      ASSERT_EQ(screen->grabs, 0);
      if (screen->changes < at) break;
      const bool refused = log.has("Unable to set display mode to 1600x900", 0);
      failed += refused;
      if (failsOn && refused) continue;  // nothing can be put back
      if (refused) {
        EXPECT_EQ(screen->state.crtcs, before.crtcs);
        EXPECT_EQ(screen->state.size, before.size);
        EXPECT_EQ(screen->state.physical, before.physical);
      } else {
        EXPECT_EQ(screen->shown(), (Names{"1600x900 at 0,0", "1600x900 at 0,0"}));
      }
      // Later requests work and tidy up.
      screen->failAt = 0;
      mode->setDisplayMode(1700, 900);
      EXPECT_EQ(screen->shown(), (Names{"1700x900 at 0,0", "1700x900 at 0,0"}));
      EXPECT_EQ(screen->ownModes().size(), 2u);
    }
    EXPECT_GT(failed, 4);
  }
}

TEST_F(DisplayModeTest, WithoutRandrNothingHappens) {
  mode.emplace(*this, std::unique_ptr<svr::RandrScreen>());
  EXPECT_FALSE(mode->isAvailable());
  mode->setDisplayMode(800, 600);
  mode->updateModes();
  list("800x600");
  EXPECT_EQ(log.count("", -1, "Randr"), 0);
}

}  // namespace
