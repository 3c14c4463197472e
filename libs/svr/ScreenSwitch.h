#pragma once

#include <vector>

#include "svr/RandrScreen.h"

namespace svr {

// A change of the screen's size and of all the modes it shows, under a grab. Unless all of it
// succeeds, the former configuration is put back when this object goes, as far as the server
// allows, so that no monitor stays dark.
class ScreenSwitch {
 public:
  // How each CRTC in use shows all of a screen of the size: rotation and outputs stay. Throws
  // plat::Exception when one has no mode for that.
  static std::vector<RandrScreen::Crtc> plan(const RandrScreen::State& before,
                                             const DisplaySize& size);

  // before is what the screen shows now.
  ScreenSwitch(RandrScreen& screen, const RandrScreen::State& before)
      : screen_(screen), before_(before) {}
  ~ScreenSwitch();
  ScreenSwitch(const ScreenSwitch&) = delete;
  ScreenSwitch& operator=(const ScreenSwitch&) = delete;

  // Once. Throws plat::Exception, also when the screen turns out to have another size.
  void apply(const DisplaySize& size);

 private:
  void switchOff();
  void restore();

  RandrScreen& screen_;
  const RandrScreen::State& before_;
  bool begun_ = false;
  bool done_ = false;
};

}  // namespace svr
