#include "rfb/PixelBuffer.h"

#include <cstring>

#include "rfb/PixelAccess.h"

namespace rfb {

void PixelBuffer::getImage(void* destination, const Rect& r, int destinationStride) {
  int stride = 0;
  const uint8_t* from = getPixelsR(r, &stride);
  if (!from) return;
  const size_t pixel = static_cast<size_t>(format_.bytesPerPixel());
  const size_t row = static_cast<size_t>(r.width()) * pixel;
  const ptrdiff_t fromStep = static_cast<ptrdiff_t>(stride) * static_cast<ptrdiff_t>(pixel);
  const ptrdiff_t toStep =
      static_cast<ptrdiff_t>(destinationStride ? destinationStride : r.width()) *
      static_cast<ptrdiff_t>(pixel);
  uint8_t* to = static_cast<uint8_t*>(destination);
  for (int y = r.tl.y; y < r.br.y; y++, from += fromStep, to += toStep) std::memcpy(to, from, row);
}

const uint8_t* PixelBuffer::getPixelsR(const Rect& r, int* stride) {
  return getPixelsRW(r, stride);
}

void PixelBuffer::grabRegion(const Region&) {}

uint32_t PixelBuffer::getPixel(int x, int y) {
  if (format_.bpp % 8 != 0) return 0;
  return loadPixel(getPixelsR(Rect(x, y, x + 1, y + 1), nullptr), format_.bytesPerPixel());
}

}  // namespace rfb
