#include "svr/input/SPointerX11.h"

#include <X11/extensions/XTest.h>

#include <algorithm>
#include <cstdint>

#include "plat/config/BoolParameter.h"
#include "svr/input/InputTrace.h"
#include "tx/TXDisplay.h"
#include "tx/input/XTestExtension.h"

namespace svr {

namespace {

plat::BoolParameter usePointerMapping(
    "UsePointerMapping", "Take the X11 pointer mapping into account when injecting button presses",
    true, true);

// Coordinates have 16 bits in the X protocol; the X server keeps the pointer on the screen.
int onWire(int32_t coordinate) {
  return std::clamp(coordinate, INT16_MIN, INT16_MAX);
}

}  // namespace

SPointerX11::SPointerX11(SPointerX11Callback* callback) : watch_(callback) {}

SPointerX11::~SPointerX11() {
  tx::TXDisplay::attempt([this] { releaseButtons(); });
}

void SPointerX11::pointerEvent(const rfb::Point& position, uint32_t buttonMask, bool relative) {
  if (!tx::TXDisplay::isOpen() || !tx::XTestExtension::present()) return;
  Display* display = tx::TXDisplay::display();
  const int x = onWire(position.x), y = onWire(position.y);
  if (relative) {
    if (position != rfb::Point()) XTestFakeRelativeMotionEvent(display, x, y, CurrentTime);
  } else if (position != watch_.last()) {
    XTestFakeMotionEvent(display, tx::TXDisplay::screen(), x, y, CurrentTime);
  }
  injectButtons(buttonMask);
  watch_.injected(relative ? PointerWatch::position() : position);
}

void SPointerX11::injectButtons(uint32_t buttonMask) {
  const uint32_t changed = buttonMask ^ lastButtonMask_;
  lastButtonMask_ = buttonMask;
  if (changed == 0) return;
  uint8_t map[tx::TXDisplay::kMaxButtons];
  const int numButtons = tx::TXDisplay::pointerButtons(map);
  for (int button = 1; button <= numButtons; ++button) {
    // The physical button that the map turns into the logical one which the viewer means.
    const int logical = usePointerMapping.value() ? map[button - 1] : button;
    if (logical < 1 || logical > 32) continue;
    const uint32_t bit = 1u << (logical - 1);
    if (!(changed & bit)) continue;
    const bool down = (buttonMask & bit) != 0;
    if (down) InputTrace::get().buttonPressed(button);
    XTestFakeButtonEvent(tx::TXDisplay::display(), static_cast<unsigned>(button), down,
                         CurrentTime);
  }
}

void SPointerX11::releaseButtons() {
  if (!tx::TXDisplay::isOpen() || lastButtonMask_ == 0) return;
  injectButtons(0);
}

}  // namespace svr
