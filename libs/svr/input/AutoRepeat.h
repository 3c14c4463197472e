#pragma once

#include "plat/timer/Timer.h"

namespace svr {

// Keeps the X server from repeating injected keys by itself: their repeats come from the viewer.
// Whoever has switched auto-repeat off already keeps it off. The display must be open.
class AutoRepeat : private plat::Timer::Callback {
 public:
  AutoRepeat() : timer_(this) {}
  // Switches it back on.
  ~AutoRepeat();
  AutoRepeat(const AutoRepeat&) = delete;
  AutoRepeat& operator=(const AutoRepeat&) = delete;

  // A key is pressed: off until further notice.
  void suspend();
  // The last key is up: on again when none is pressed for a while.
  void resumeLater();
  void resume();

 private:
  void timerCallback(plat::Timer& timer) override;

  plat::Timer timer_;
  bool suspended_ = false;
};

}  // namespace svr
