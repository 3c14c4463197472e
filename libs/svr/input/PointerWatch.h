#pragma once

#include <cstdint>

#include "plat/config/ParameterChangedCallback.h"
#include "plat/timer/Timer.h"
#include "rfb/Point.h"
#include "tx/input/PointerAlarm.h"

namespace svr {

// Hears of the pointer's position.
class SPointerX11Callback {
 public:
  // The position to report, in root window coordinates.
  virtual void pointerPosition(int x, int y) = 0;
  // The pointer has moved, otherwise than by injection.
  virtual void pointerMoved() = 0;

 protected:
  ~SPointerX11Callback() = default;
};

// Watches where the pointer is: asks the X server every `PollCursorTime` ms (0: never), and where
// that can be, waits for an alarm instead of asking while nobody moves it. The display must be
// open.
class PointerWatch : private plat::Timer::Callback,
                     private tx::PointerAlarm::Callback,
                     private plat::ParameterChangedCallback {
 public:
  // The callback is not owned.
  explicit PointerWatch(SPointerX11Callback* callback);
  ~PointerWatch();
  PointerWatch(const PointerWatch&) = delete;
  PointerWatch& operator=(const PointerWatch&) = delete;

  // Off at first.
  void setOn(bool on);
  // The position that was last observed or injected.
  const rfb::Point& last() const { return last_; }
  // Something may have moved the pointer without using it.
  void wake();
  // An injected event has brought the pointer there; it is reported in its time.
  void injected(const rfb::Point& position);

  // Where the pointer is. One round trip.
  static rfb::Point position();

 private:
  // plat::Timer::Callback
  void timerCallback(plat::Timer& timer) override;
  // tx::PointerAlarm::Callback
  void pointerUsed() override;
  // plat::ParameterChangedCallback
  void paramChanged(plat::ConfigParameter* parameter, int priority) override;

  void look();
  void start();
  // Has the alarm replace the timer, if it can.
  void tryResting();

  SPointerX11Callback* callback_;
  bool on_ = false;
  rfb::Point last_;
  bool resting_ = false;  // the alarm is waited for
  bool moved_ = false;    // since the last report
  int64_t lastMove_ = 0;  // monotonic time
  plat::Timer timer_{this};
  tx::PointerAlarm alarm_{*this};
};

}  // namespace svr
