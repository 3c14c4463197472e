#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

#include "Xregion/Box.h"

namespace mi {

// The rows of a band, to be given to many boxes. A box is written in one or two stores: written
// coordinate by coordinate, it would cost the inner loops a third of their time.
class Rows {
 public:
  Rows(int16_t y1, int16_t y2) : topBits_(corner(0, y1)), bottomBits_(corner(0, y2)) {}

  // A box in these rows.
  void put(Box* out, int16_t x1, int16_t x2) const {
    const uint32_t corners[2] = {corner(x1, 0) | topBits_, corner(x2, 0) | bottomBits_};
    std::memcpy(static_cast<void*>(out), corners, sizeof corners);
  }

  // Copies of boxes, in these rows. Returns the end of the copies.
  Box* putAll(Box* out, const Box* from, const Box* end) const {
    const uint32_t top = topBits_;
    const uint32_t bottom = bottomBits_;
    const uint32_t xBits = corner(-1, 0);
    for (; from != end; ++from, ++out) {
      uint32_t corners[2];
      std::memcpy(corners, from, sizeof corners);
      corners[0] = (corners[0] & xBits) | top;
      corners[1] = (corners[1] & xBits) | bottom;
      std::memcpy(static_cast<void*>(out), corners, sizeof corners);
    }
    return out;
  }

 private:
  static constexpr uint32_t corner(int16_t x, int16_t y) {
    const uint32_t first = static_cast<uint16_t>(x);
    const uint32_t second = static_cast<uint16_t>(y);
    return std::endian::native == std::endian::little ? first | second << 16 : first << 16 | second;
  }

  uint32_t topBits_;
  uint32_t bottomBits_;
};

}  // namespace mi
