#include "svr/RandrScreen.h"

#include <algorithm>

namespace svr {

bool RandrScreen::Output::hasMode(uint32_t mode) const {
  return std::find(modes.begin(), modes.end(), mode) != modes.end();
}

uint32_t RandrScreen::State::findMode(const DisplaySize& wanted) const {
  const auto isOnAll = [&](uint32_t mode) {
    for (const Crtc& crtc : crtcs) {
      if (!crtc.inUse()) continue;
      for (const Output& output : outputs) {
        const bool shows =
            std::find(crtc.outputs.begin(), crtc.outputs.end(), output.id) != crtc.outputs.end();
        if (shows && !output.hasMode(mode)) return false;
      }
    }
    return true;
  };
  for (const Mode& mode : modes) {
    if (mode.size == wanted && isOnAll(mode.id)) return mode.id;
  }
  return 0;
}

bool RandrScreen::State::isModeInUse(uint32_t mode) const {
  return std::any_of(crtcs.begin(), crtcs.end(),
                     [mode](const Crtc& crtc) { return crtc.mode == mode; });
}

}  // namespace svr
