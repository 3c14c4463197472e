#pragma once

#include <cstdint>

#include "plat/timer/Timer.h"
#include "rfb/Point.h"

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

// Moves the pointer and presses its buttons through XTEST as viewers ask, and watches where it is.
// The display must be open.
class SPointerX11 : private plat::Timer::Callback {
 public:
  // The callback is not owned.
  explicit SPointerX11(SPointerX11Callback* callback);
  // Releases every button that is held.
  ~SPointerX11();
  SPointerX11(const SPointerX11&) = delete;
  SPointerX11& operator=(const SPointerX11&) = delete;

  // The pointer is at position, or moves by it, with these buttons held (bit 0 is logical button
  // 1). Dropped without XTEST.
  void pointerEvent(const rfb::Point& position, uint32_t buttonMask, bool relative);
  void releaseButtons();

  // Watches the position every `PollCursorTime` ms, if that is above 0.
  void setPolling(bool on);

 private:
  void timerCallback(plat::Timer& timer) override;
  void checkPosition();
  void injectButtons(uint32_t buttonMask);
  // Stores a position; true if it is another one.
  bool store(const rfb::Point& position);

  SPointerX11Callback* callback_;
  rfb::Point last_;
  plat::Timer pollTimer_;
  uint32_t lastButtonMask_ = 0;
  bool moved_ = false;
};

}  // namespace svr
