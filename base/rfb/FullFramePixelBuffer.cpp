#include "rfb/FullFramePixelBuffer.h"

#include "plat/Assert.h"

namespace rfb {

FullFramePixelBuffer::FullFramePixelBuffer(const PixelFormat& format, const Rect& rect,
                                           uint8_t* data, ColourMap* colourMap, int stride)
    : WritablePixelBuffer(format, rect),
      colourMap_(colourMap),
      data_(data),
      stride_(stride ? stride : rect.width()) {}

FullFramePixelBuffer::FullFramePixelBuffer(PixelBuffer& other, const Rect& rect)
    : WritablePixelBuffer(other.getPF(), rect.intersect(other.getRect())),
      colourMap_(other.getColourMap()) {
  data_ = other.getPixelsRW(rect_, &stride_);
}

uint8_t* FullFramePixelBuffer::getPixelsRW(const Rect& r, int* stride) {
  if (stride) *stride = stride_;
  if (r.isEmpty()) return nullptr;
  const Rect& rect = rect_;
  PLAT_ASSERT_MSG(rect.encloses(r), "getPixelsRW out of bounds: %s outside %s", r.str().c_str(),
                  rect.str().c_str());
  const ptrdiff_t pixels =
      static_cast<ptrdiff_t>(r.tl.y - rect.tl.y) * stride_ + (r.tl.x - rect.tl.x);
  return data_ + pixels * format_.bytesPerPixel();
}

}  // namespace rfb
