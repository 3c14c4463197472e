#include "svr/ScreenSwitch.h"

#include <utility>

#include "plat/Exception.h"
#include "plat/log/LogSrc.h"

namespace svr {

namespace {

plat::LogSrc vlog("Randr");

}  // namespace

std::vector<RandrScreen::Crtc> ScreenSwitch::plan(const RandrScreen::State& before,
                                                  const DisplaySize& size) {
  std::vector<RandrScreen::Crtc> result;
  for (RandrScreen::Crtc crtc : before.crtcs) {
    if (!crtc.inUse()) continue;
    crtc.mode = before.findMode(size, crtc.isTurned());
    if (!crtc.mode) throw plat::Exception("No mode of this size that all outputs in use have");
    crtc.position = rfb::Point();
    result.push_back(std::move(crtc));
  }
  return result;
}

void ScreenSwitch::apply(const DisplaySize& size) {
  const std::vector<RandrScreen::Crtc> wanted = plan(before_, size);
  begun_ = true;
  switchOff();
  screen_.setScreenSize(size, size.physical());
  for (const RandrScreen::Crtc& crtc : wanted) screen_.configureCrtc(crtc);
  const DisplaySize now = screen_.size();
  if (now != size) throw plat::Exception("The screen became %s", now.str().c_str());
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
