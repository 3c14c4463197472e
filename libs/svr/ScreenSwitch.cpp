#include "svr/ScreenSwitch.h"

#include <algorithm>
#include <utility>

#include "plat/Exception.h"
#include "plat/log/LogSrc.h"

namespace svr {

namespace {

plat::LogSrc vlog("Randr");

// The nearest place for a span of the length within the whole; 0 when there is none.
int nearest(int position, int length, int whole) {
  return std::max(0, std::min(position, whole - length));
}

}  // namespace

std::vector<RandrScreen::Crtc> ScreenSwitch::plan(const RandrScreen::State& before,
                                                  const DisplaySize& size, uint32_t mode) {
  std::vector<RandrScreen::Crtc> result;
  for (RandrScreen::Crtc crtc : before.crtcs) {
    if (!crtc.inUse()) continue;
    DisplaySize shown = size;
    if (crtc.rotation & (RandrScreen::kRotate90 | RandrScreen::kRotate270)) {
      std::swap(shown.width, shown.height);
    }
    crtc.mode = mode;
    crtc.position = rfb::Point(nearest(crtc.position.x, shown.width, size.width),
                               nearest(crtc.position.y, shown.height, size.height));
    result.push_back(std::move(crtc));
  }
  return result;
}

void ScreenSwitch::apply(const DisplaySize& size, uint32_t mode) {
  const std::vector<RandrScreen::Crtc> wanted = plan(before_, size, mode);
  begun_ = true;
  switchOff();
  screen_.setScreenSize(size, size.physical());
  for (const RandrScreen::Crtc& crtc : wanted) screen_.configureCrtc(crtc);
  done_ = true;
}

ScreenSwitch::~ScreenSwitch() {
  if (begun_ && !done_) restore();
}

void ScreenSwitch::switchOff() {
  for (const RandrScreen::Crtc& crtc : before_.crtcs) {
    if (!crtc.inUse()) continue;
    RandrScreen::Crtc off;
    off.id = crtc.id;
    screen_.configureCrtc(off);
  }
}

void ScreenSwitch::restore() {
  bool complete = true;
  const auto attempt = [&](auto step) {
    try {
      step();
    } catch (const plat::Exception& e) {
      complete = false;
      vlog.error("Unable to restore the display configuration: %s", e.text());
    }
  };
  attempt([&] { switchOff(); });
  attempt([&] { screen_.setScreenSize(before_.size, before_.physical); });
  for (const RandrScreen::Crtc& crtc : before_.crtcs) {
    if (crtc.inUse()) attempt([&] { screen_.configureCrtc(crtc); });
  }
  if (complete) vlog.info("Restored the display configuration");
}

}  // namespace svr
