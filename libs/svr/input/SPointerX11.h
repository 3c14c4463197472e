#pragma once

#include <cstdint>

#include "rfb/Point.h"
#include "svr/input/PointerWatch.h"

namespace svr {

// Moves the pointer and presses its buttons through XTEST as viewers ask, and watches where it is.
// The display must be open.
class SPointerX11 {
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

  // Watches the position, see PointerWatch.
  void setPolling(bool on) { watch_.setOn(on); }
  // Something may have moved the pointer without using it.
  void screenChanged() { watch_.wake(); }

 private:
  void injectButtons(uint32_t buttonMask);

  PointerWatch watch_;
  uint32_t lastButtonMask_ = 0;
};

}  // namespace svr
