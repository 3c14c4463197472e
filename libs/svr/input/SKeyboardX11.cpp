#include "svr/input/SKeyboardX11.h"

#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>
#include <unistd.h>

#include <algorithm>

#include "plat/log/LogSrc.h"
#include "tx/TXDisplay.h"
#include "tx/XResources.h"
#include "tx/XTestExtension.h"

namespace svr {

namespace {

plat::LogSrc vlog("SKeyboardX11");

// Time for releases to reach the X server before the connection may close.
constexpr useconds_t kReleaseDelayUs = 100 * 1000;

}  // namespace

SKeyboardX11::SKeyboardX11() : interpreter_(*this) {}

SKeyboardX11::~SKeyboardX11() {
  if (!tx::TXDisplay::isOpen()) return;
  interpreter_.releasePressedKeys();
  autoRepeat_.resume();
  XFlush(tx::TXDisplay::display());
  usleep(kReleaseDelayUs);
}

void SKeyboardX11::keyEvent(uint32_t keysym, bool down) {
  if (!tx::TXDisplay::isOpen() || !tx::XTestExtension::present()) return;
  map_.follow();
  interpreter_.keyEvent(keysym, down);
  if (!interpreter_.hasPressedKeysyms()) autoRepeat_.resumeLater();
}

void SKeyboardX11::releaseKeys() {
  if (!tx::TXDisplay::isOpen() || !interpreter_.hasPressedKeysyms()) return;
  interpreter_.releasePressedKeys();
  autoRepeat_.resumeLater();
}

std::optional<rfb::Keyboard::Key> SKeyboardX11::find(uint32_t keysym, int preferredLevel) {
  return map_.find(keysym, preferredLevel);
}

void SKeyboardX11::send(int keycode, bool down) {
  // Under a key that is held auto-repeat must not come back.
  if (down) autoRepeat_.suspend();
  XTestFakeKeyEvent(tx::TXDisplay::display(), static_cast<unsigned>(keycode), down, CurrentTime);
  map_.keySent(keycode, down);
}

std::optional<int> SKeyboardX11::graft(uint32_t keysym) {
  Display* display = tx::TXDisplay::display();
  const int minKeycode = map_.minKeycode(), maxKeycode = map_.maxKeycode();
  int symsPerKeycode = 0;
  const tx::XMemory<KeySym> map(XGetKeyboardMapping(display, static_cast<KeyCode>(minKeycode),
                                                    maxKeycode - minKeycode + 1, &symsPerKeycode));
  const auto row = [&](int keycode) { return map.get() + (keycode - minKeycode) * symsPerKeycode; };
  if (map && symsPerKeycode > 0) {
    // A keysym that comes again before the change of the map has been reported.
    for (const Graft& graft : grafts_) {
      if (graft.keysym == keysym && graft.keycode >= minKeycode && graft.keycode <= maxKeycode &&
          static_cast<uint32_t>(row(graft.keycode)[0]) == keysym) {
        return graft.keycode;
      }
    }

    for (int keycode = maxKeycode; keycode >= minKeycode; --keycode) {
      KeySym* const syms = row(keycode);
      if (!std::all_of(syms, syms + symsPerKeycode, [](KeySym s) { return s == NoSymbol; })) {
        continue;
      }
      syms[0] = keysym;
      // A letter alone is taken for both of its cases.
      KeySym lower, upper;
      XConvertCase(keysym, &lower, &upper);
      if (lower != upper && symsPerKeycode > 1) syms[1] = keysym;
      XChangeKeyboardMapping(display, keycode, symsPerKeycode, syms, 1);
      vlog.info("Added unknown keysym 0x%x to keycode %d", keysym, keycode);
      std::erase_if(grafts_, [&](const Graft& g) { return g.keycode == keycode; });
      grafts_.push_back({keycode, keysym});
      return keycode;
    }
  }
  vlog.info("Keyboard mapping full - ignoring unknown keysym 0x%x", keysym);
  return std::nullopt;
}

}  // namespace svr
