#pragma once

#include "rfb/CursorWithMask.h"

namespace rfb {

// The built-in arrow, for when there is no real cursor image: 12 x 21 pixels, black with a white
// edge, the hotspot at its tip.
class ArrowCursor : public CursorWithMask {
 public:
  explicit ArrowCursor(const PixelFormat& format, ColourMap* colourMap = nullptr);
};

}  // namespace rfb
