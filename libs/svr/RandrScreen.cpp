#include "svr/RandrScreen.h"

#include <algorithm>

namespace svr {

bool RandrScreen::Crtc::feeds(uint32_t output) const {
  return std::find(outputs.begin(), outputs.end(), output) != outputs.end();
}

bool RandrScreen::Output::hasMode(uint32_t mode) const {
  return std::find(modes.begin(), modes.end(), mode) != modes.end();
}

std::vector<DisplaySize> RandrScreen::State::modeSizes(const DisplaySize& screen) const {
  bool turned = false, upright = false;
  for (const Crtc& crtc : crtcs) {
    if (crtc.inUse()) (crtc.isTurned() ? turned : upright) = true;
  }
  if (!turned) return {screen};
  if (!upright) return {screen.turned()};
  return {screen, screen.turned()};
}

uint32_t RandrScreen::State::findMode(const DisplaySize& screen, bool turned) const {
  const auto isOnAll = [&](uint32_t mode) {
    for (const Crtc& crtc : crtcs) {
      if (!crtc.inUse() || crtc.isTurned() != turned) continue;
      for (const Output& output : outputs) {
        if (crtc.feeds(output.id) && !output.hasMode(mode)) return false;
      }
    }
    return true;
  };
  const DisplaySize wanted = turned ? screen.turned() : screen;
  for (const Mode& mode : modes) {
    if (mode.size == wanted && isOnAll(mode.id)) return mode.id;
  }
  return 0;
}

bool RandrScreen::State::canShow(const DisplaySize& screen) const {
  const auto isInUse = [](const Crtc& crtc) { return crtc.inUse(); };
  if (std::none_of(crtcs.begin(), crtcs.end(), isInUse)) return findMode(screen, false) != 0;
  return std::all_of(crtcs.begin(), crtcs.end(), [&](const Crtc& crtc) {
    return !crtc.inUse() || findMode(screen, crtc.isTurned()) != 0;
  });
}

bool RandrScreen::State::isModeInUse(uint32_t mode) const {
  return std::any_of(crtcs.begin(), crtcs.end(),
                     [mode](const Crtc& crtc) { return crtc.mode == mode; });
}

bool RandrScreen::State::isShown(uint32_t output) const {
  return std::any_of(crtcs.begin(), crtcs.end(),
                     [output](const Crtc& crtc) { return crtc.inUse() && crtc.feeds(output); });
}

}  // namespace svr
