#pragma once

#include <cstdint>

namespace rfb {

// A colour as the pixel operations see it: four channels of 0..255, alpha 255 being opaque.
struct Colour {
  uint8_t red = 0;
  uint8_t green = 0;
  uint8_t blue = 0;
  uint8_t alpha = 255;

  friend bool operator==(const Colour&, const Colour&) = default;
};

}  // namespace rfb
