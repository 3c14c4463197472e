#include "rfb/WritablePixelBuffer.h"

#include "rfb/PixelAccess.h"

namespace rfb {

void WritablePixelBuffer::setPixel(int x, int y, uint32_t value) {
  if (format_.bpp % 8 != 0) return;
  storePixel(getPixelsRW(Rect(x, y, x + 1, y + 1), nullptr), format_.bytesPerPixel(), value);
}

}  // namespace rfb
