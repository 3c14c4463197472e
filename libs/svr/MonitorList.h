#pragma once

#include <vector>

#include "plat/String.h"
#include "rdr/DisplayInfo.h"
#include "rfb/Region.h"

namespace svr {

// The monitors of the desktop: RANDR's active CRTCs in the order in which RANDR lists them,
// numbered from 1. Without RANDR the whole screen is the only one.
class MonitorList {
 public:
  // No monitors.
  MonitorList() = default;
  explicit MonitorList(std::vector<rfb::Rect> rects) : rects_(std::move(rects)) {}

  // Asks the X server. Throws plat::Exception.
  static MonitorList query();
  // The area of the root window at this moment. Throws plat::Exception.
  static rfb::Rect screenRect();

  const std::vector<rfb::Rect>& rects() const { return rects_; }
  // What any monitor shows.
  rfb::Region region() const;
  std::vector<plat::DisplayInfo> displayInfo() const;

  // The bounding rectangle of the monitors named by decimal numbers with commas between; empty for
  // null, empty or blank text. Throws plat::Exception "No monitor '<item>'".
  rfb::Rect select(const plat::String& selection) const;

 private:
  std::vector<rfb::Rect> rects_;
};

}  // namespace svr
