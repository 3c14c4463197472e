#include "svr/MonitorSelection.h"

#include "plat/Exception.h"
#include "plat/config/StringParameter.h"
#include "plat/log/LogSrc.h"
#include "svr/MonitorList.h"
#include "tx/RandrExtension.h"

namespace svr {

namespace {

// Part of the desktop, as far as a reader of the log is concerned.
plat::LogSrc vlog("SDesktopX11");

plat::StringParameter monitor("Monitor", plat::MessageId{"svr_param_sdisplay_displaydevice"}, "");

rfb::Rect rectOf(const MonitorList& monitors, const plat::String& text) {
  try {
    return monitors.select(text);
  } catch (const plat::Exception& e) {
    vlog.error("Bad Monitor param: %s", e.text());
    return rfb::Rect();
  }
}

}  // namespace

plat::String MonitorSelection::parameter() {
  return monitor.value();
}

bool MonitorSelection::choose(const plat::String& text) {
  if (text.view() == chosen_.view()) return false;
  if (!text.empty()) {
    if (!tx::RandrExtension::get()) return false;
    try {
      MonitorList::query().select(text);
    } catch (const plat::Exception& e) {
      vlog.error("Invalid monitor selection: %s", e.text());
      return false;
    }
  }
  chosen_ = text;
  return true;
}

MonitorSelection::Area MonitorSelection::area(const MonitorList& monitors) const {
  for (const plat::String& text : {parameter(), chosen_}) {
    const rfb::Rect rect = rectOf(monitors, text);
    if (rect.isEmpty()) continue;
    vlog.info(
        "Monitor %s rect %s", text.c_str(),
        plat::format("%dx%d at %d,%d", rect.width(), rect.height(), rect.tl.x, rect.tl.y).c_str());
    return {rect, text};
  }
  return {};
}

}  // namespace svr
