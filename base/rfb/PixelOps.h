#pragma once

#include <algorithm>

#include "rfb/CombinePixels.h"

namespace rfb {

// The source replaces the destination.
struct CopyOp {
  void operator()(const Colour& source, Colour& destination) const { destination = source; }
};

// The source, whose colours are premultiplied by its alpha, lies over the destination. A colour
// brighter than its alpha allows ends at full intensity.
struct OverOp {
  void operator()(const Colour& source, Colour& destination) const {
    const unsigned through = 255u - source.alpha;
    destination = {over(source.red, destination.red, through),
                   over(source.green, destination.green, through),
                   over(source.blue, destination.blue, through),
                   over(source.alpha, destination.alpha, through)};
  }

  // For argb8888 in the machine's own byte order over the same with or without alpha.
  bool combineRows(const CombineArea& area, const PixelFormat& source,
                   const PixelFormat& destination) const;

 private:
  static uint8_t over(unsigned source, unsigned destination, unsigned through) {
    return static_cast<uint8_t>(std::min(255u, source + (destination * through + 127) / 255));
  }
};

}  // namespace rfb
