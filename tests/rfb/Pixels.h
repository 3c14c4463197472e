#pragma once

#include <cstdint>
#include <vector>

#include "rfb/PixelBuffer.h"

namespace support {

// Row by row.
template <typename F>
void forEachPixel(const rfb::PixelBuffer& buffer, F f) {
  const rfb::Rect rect = buffer.getRect();
  for (int y = rect.tl.y; y < rect.br.y; ++y) {
    for (int x = rect.tl.x; x < rect.br.x; ++x) f(x, y);
  }
}

inline std::vector<uint32_t> pixels(rfb::PixelBuffer& buffer) {
  std::vector<uint32_t> values;
  forEachPixel(buffer, [&](int x, int y) { values.push_back(buffer.getPixel(x, y)); });
  return values;
}

}  // namespace support
