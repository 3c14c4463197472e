#pragma once

#include <cstdint>

#include "rfb/ColourMap.h"
#include "rfb/ImageGetter.h"

namespace plat {
class SharedMem;
}

namespace rfb {

class Region;

// A rectangle of pixels in memory.
class PixelBuffer : public ImageGetter {
 public:
  PixelBuffer(const PixelBuffer&) = delete;
  PixelBuffer& operator=(const PixelBuffer&) = delete;

  void getImage(void* destination, const Rect& r, int destinationStride = 0) override;

  // Null unless the format is a colour-map one (and sometimes then). Not owned.
  virtual ColourMap* getColourMap() const { return nullptr; }

  // The first pixel of r, which must lie inside the buffer, and the distance between rows in pixels
  // (stride may be null). Null for an empty r.
  virtual const uint8_t* getPixelsR(const Rect& r, int* stride);

  // Brings the pixels of a region up to date with what the buffer shows.
  virtual void grabRegion(const Region& region);

  // The shared memory that holds the pixels, or null. Not owned.
  virtual plat::SharedMem* getSharedMem() { return nullptr; }

  // As getPixelsR, for writing.
  virtual uint8_t* getPixelsRW(const Rect& r, int* stride) = 0;

  // The value of one pixel: 8, 16 and 32 bits as an integer in the machine's own byte order, 24
  // bits least significant byte first; 0 for any other width.
  uint32_t getPixel(int x, int y);

 protected:
  PixelBuffer() = default;
  PixelBuffer(const PixelFormat& format, const Rect& rect) : ImageGetter(format, rect) {}
};

}  // namespace rfb
