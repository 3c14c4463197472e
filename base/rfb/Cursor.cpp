#include "rfb/Cursor.h"

#include <cstring>

namespace rfb {

const PixelFormat& Cursor::alphaFormat() {
  static const PixelFormat format(32, 32, false, true, 255, 255, 255, 16, 8, 0, 24, 255);
  return format;
}

Cursor::Cursor(const PixelFormat& format, int width, int height, const Point& hotspot,
               ColourMap* colourMap)
    : ManagedPixelBuffer(
          format, Rect(-hotspot.x, -hotspot.y, width - hotspot.x, height - hotspot.y), colourMap) {
  if (data_) std::memset(data_, 0, static_cast<size_t>(capacity()));
}

void Cursor::copyPixels(Cursor& from) {
  if (data_) from.getImage(data_, from.getRect(), stride_);
}

}  // namespace rfb
