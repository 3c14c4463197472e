#pragma once

#include <cstdint>
#include <vector>

#include "Picture.h"

namespace drive {

struct Colour {
  uint8_t red = 0, green = 0, blue = 0;
  bool operator==(const Colour&) const = default;
};

struct Extent {
  int width = 0, height = 0;
  bool operator==(const Extent&) const = default;
};

// The mean of an area of a picture, which has at least the pixel at (x1, y1).
Colour meanOf(const Picture& picture, int x1, int y1, int x2, int y2);
// The size in which all of a picture fits into an area, not larger than the picture is.
Extent fitting(const Picture& picture, int width, int height);
// A picture in that size: rows of width * 4 bytes red, green, blue, alpha (255).
std::vector<uint8_t> scaled(const Picture& picture, const Extent& extent);

}  // namespace drive
