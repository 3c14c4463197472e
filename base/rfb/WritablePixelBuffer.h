#pragma once

#include "rfb/PixelBuffer.h"

namespace rfb {

// A pixel buffer that others may draw on.
class WritablePixelBuffer : public PixelBuffer {
 public:
  // Writes one pixel; see getPixel(). A width other than 8, 16, 24 and 32 bits does nothing.
  void setPixel(int x, int y, uint32_t value);

 protected:
  using PixelBuffer::PixelBuffer;
};

}  // namespace rfb
