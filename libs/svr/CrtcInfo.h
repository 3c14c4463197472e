#pragma once

#include <X11/Xlib.h>
#include <X11/extensions/Xrandr.h>

#include <vector>

#include "rfb/Rect.h"

namespace tx {
class RandrExtension;
}

namespace svr {

// What a CRTC shows. The mode is None, and the rectangle empty, while it shows nothing.
struct CrtcInfo {
  RRCrtc id = None;
  rfb::Rect rect;
  RRMode mode = None;
  Rotation rotation = RR_Rotate_0;
  std::vector<RROutput> outputs;
};

// All CRTCs of a screen, in one round trip where asking the client library takes one for each.
// Throws plat::Exception.
std::vector<CrtcInfo> fetchCrtcs(const tx::RandrExtension& randr,
                                 const XRRScreenResources& resources);

}  // namespace svr
