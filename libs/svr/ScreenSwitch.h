#pragma once

#include <vector>

#include "svr/RandrScreen.h"

namespace svr {

// A change of the screen's size and of all the modes it shows, under a grab. Unless all of it
// succeeds, the former configuration is put back when this object goes, as far as the server
// allows, so that no monitor stays dark.
class ScreenSwitch {
 public:
  // Where each CRTC in use goes on a screen of the size, with the given mode of the same size: to
  // its position, or the nearest at which it fits. Rotation and outputs stay.
  static std::vector<RandrScreen::Crtc> plan(const RandrScreen::State& before,
                                             const DisplaySize& size, uint32_t mode);

  // before is what the screen shows now.
  ScreenSwitch(RandrScreen& screen, const RandrScreen::State& before)
      : screen_(screen), before_(before) {}
  ~ScreenSwitch();
  ScreenSwitch(const ScreenSwitch&) = delete;
  ScreenSwitch& operator=(const ScreenSwitch&) = delete;

  // Once. Throws plat::Exception.
  void apply(const DisplaySize& size, uint32_t mode);

 private:
  void switchOff();
  void restore();

  RandrScreen& screen_;
  const RandrScreen::State& before_;
  bool begun_ = false;
  bool done_ = false;
};

}  // namespace svr
