#pragma once

#include <algorithm>
#include <cstdint>

#include "Xregion/miregion.h"
#include "rfb/Rect.h"

namespace rfb {

// A rectangle as regions store it: each coordinate is clamped to -32768..32767. So
// Rect(RgnRect(r)) == r tells whether r fits.
struct RgnRect {
  constexpr explicit RgnRect(const Rect& r)
      : box{clamp(r.tl.x), clamp(r.tl.y), clamp(r.br.x), clamp(r.br.y)} {}
  constexpr explicit RgnRect(const mi::Box& b) : box(b) {}

  constexpr explicit operator Rect() const { return {box.x1, box.y1, box.x2, box.y2}; }

  static constexpr int16_t clamp(int64_t v) {
    return static_cast<int16_t>(std::clamp<int64_t>(v, INT16_MIN, INT16_MAX));
  }

  mi::Box box;
};

}  // namespace rfb
