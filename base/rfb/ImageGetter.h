#pragma once

#include "rfb/PixelFormat.h"
#include "rfb/Rect.h"

namespace rfb {

// Something that can hand out the pixels of a rectangle: an image with a format and an area.
class ImageGetter {
 public:
  virtual ~ImageGetter() = default;

  const PixelFormat& getPF() const { return format_; }
  // The area covered; its top-left need not be 0,0.
  const Rect& getRect() const { return rect_; }
  int width() const { return rect_.width(); }
  int height() const { return rect_.height(); }

  // Copies the pixels of r into destination, row by row. The stride is in pixels; 0 means r's
  // width.
  virtual void getImage(void* destination, const Rect& r, int destinationStride = 0) = 0;

 protected:
  ImageGetter() = default;
  ImageGetter(const PixelFormat& format, const Rect& rect) : format_(format), rect_(rect) {}

  PixelFormat format_;
  Rect rect_;
};

}  // namespace rfb
