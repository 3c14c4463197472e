#include "x11/TXFixture.h"

#include <algorithm>
#include <vector>

#include "plat/Exception.h"
#include "svr/DisplayMode.h"
#include "svr/ModeTimings.h"
#include "svr/RandrScreenX11.h"

namespace {

// The real screen, one change of which fails.
class FailingScreen final : public svr::RandrScreen {
 public:
  State read(Extent extent) override { return real_.read(extent); }
  svr::DisplaySize size() override { return real_.size(); }
  bool allowsSize(const svr::DisplaySize& size) override { return real_.allowsSize(size); }
  uint32_t createMode(const std::string& name, const svr::ModeTimings& timings) override {
    return change().createMode(name, timings);
  }
  void destroyMode(uint32_t mode) override { change().destroyMode(mode); }
  void addOutputMode(uint32_t output, uint32_t mode) override {
    change().addOutputMode(output, mode);
  }
  void deleteOutputMode(uint32_t output, uint32_t mode) override {
    change().deleteOutputMode(output, mode);
  }
  void setScreenSize(const svr::DisplaySize& size, const svr::DisplaySize& physical) override {
    change().setScreenSize(size, physical);
  }
  void configureCrtc(const Crtc& crtc) override { change().configureCrtc(crtc); }

  // Counted from 1; 0 for none.
  int failAt = 0;
  int changes = 0;

 private:
  void grab() override { grab_.emplace(real_); }
  void ungrab() noexcept override { grab_.reset(); }
  svr::RandrScreen& change() {
    if (++changes == failAt) throw plat::Exception("The test refuses it");
    return real_;
  }

  svr::RandrScreenX11 real_{*tx::RandrExtension::get()};
  std::optional<Grab> grab_;
};

TEST_F(TXFixture, PhysicalSizeOfTheScreen) {
  start("1000x700x24");
  svr::RandrScreenX11 screen(*tx::RandrExtension::get());
  const svr::DisplaySize physical = screen.read(svr::RandrScreen::Extent::kAll).physical;
  EXPECT_EQ(physical.width, DisplayWidthMM(client(), 0));
  EXPECT_EQ(physical.height, DisplayHeightMM(client(), 0));
  EXPECT_NE(physical.width, svr::DisplaySize({1000, 700}).physical().width);
}

class DisplayModeTest : public TXFixture, public svr::DisplayMode::Callback {
  void displayModesChanged() override {}
};

// Whichever request fails, no monitor stays dark, and the server is not left grabbed.
TEST_F(DisplayModeTest, SurvivesEveryFailure) {
  use(support::XServer::dummy({{1024, 768, 0, 0}, {800, 600, 1024, 0}}));
  auto owned = std::make_unique<FailingScreen>();
  FailingScreen& screen = *owned;
  svr::DisplayMode mode(*this, std::move(owned));
  // Also not from the size that Xlib knows: it is restored in millimetres, too.
  const int millimetres = DisplayWidthMM(client(), 0);
  screen.failAt = 2;
  mode.setDisplayMode(1601, 900);
  EXPECT_EQ(DisplayWidthMM(server().connect().get(), 0), millimetres);
  mode.setDisplayMode(910, 700);
  const svr::ModeTimings timings({910, 700});
  const tx::XRRResources resources =
      tx::RandrExtension::get()->resources(client(), DefaultRootWindow(client()));
  const auto* const made =
      std::find_if(resources->modes, resources->modes + resources->nmode,
                   [](const XRRModeInfo& m) { return m.width == 910 && m.height == 700; });
  ASSERT_NE(made, resources->modes + resources->nmode);
  EXPECT_EQ(
      (std::vector<unsigned long>{made->hSyncStart, made->hSyncEnd, made->hTotal, made->vSyncStart,
                                  made->vSyncEnd, made->vTotal, made->dotClock}),
      (std::vector<unsigned long>{timings.hSyncStart, timings.hSyncEnd, timings.hTotal,
                                  timings.vSyncStart, timings.vSyncEnd, timings.vTotal,
                                  timings.dotClock}));
  int refused = 0;
  for (int at = 1;; ++at) {
    SCOPED_TRACE(at);
    // Later requests work and tidy up.
    mode.setDisplayMode(910, 700);
    const svr::RandrScreen::State before = screen.read(svr::RandrScreen::Extent::kAll);
    ASSERT_EQ(before.size.str(), "910x700");
    log_.clear();
    screen.changes = 0;
    screen.failAt = at;
    mode.setDisplayMode(1601, 900);
    screen.failAt = 0;
    XSync(client(), False);
    const svr::RandrScreen::State after = screen.read(svr::RandrScreen::Extent::kAll);
    if (log_.has("Unable to set display mode to 1601x900", 0, "Randr")) {
      ++refused;
      EXPECT_TRUE(after.crtcs == before.crtcs && after.size == before.size);
      EXPECT_EQ(after.modes.size(), before.modes.size());
    } else {
      EXPECT_EQ(after.size.str(), "1601x900");
      for (const svr::RandrScreen::Crtc& crtc : after.crtcs) {
        EXPECT_EQ(crtc.mode != 0, crtc.id == after.crtcs[0].id || crtc.id == after.crtcs[1].id);
      }
    }
    if (screen.changes < at) break;
  }
  // The mode itself, two monitors off, the screen, two monitors on, and the mode on both.
  EXPECT_EQ(refused, 8);
}

}  // namespace
