#pragma once

#include <ruvohost/Framebuffer.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace view {

using ruvohost::Rect;

// An area of 32-bit pixels; the fourth byte of each means nothing.
struct Pixels {
  enum class Order { kBgr, kRgb };

  const uint8_t* data = nullptr;
  size_t stride = 0;  // bytes
  int width = 0, height = 0;
  Order order = Order::kBgr;

  const uint8_t* row(int y) const { return data + static_cast<size_t>(y) * stride; }
};

// The pixels of a framebuffer with 0,0 as its corner: where they lie, if they are of a usual
// format, else converted into `scratch`. The area lies inside.
Pixels pixelsOf(const ruvohost::Framebuffer& framebuffer, const Rect& area,
                std::vector<uint8_t>& scratch);

}  // namespace view
