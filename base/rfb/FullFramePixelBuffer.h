#pragma once

#include "rfb/WritablePixelBuffer.h"

namespace rfb {

// A pixel buffer in one block of memory, which it does not own, with a fixed distance between rows.
class FullFramePixelBuffer : public WritablePixelBuffer {
 public:
  // data is the first pixel of the top row; stride is in pixels, 0 meaning the rectangle's width.
  FullFramePixelBuffer(const PixelFormat& format, const Rect& rect, uint8_t* data,
                       ColourMap* colourMap = nullptr, int stride = 0);
  // A view of a part of another buffer, which must outlive it. The rectangle is clipped to the
  // other's.
  FullFramePixelBuffer(PixelBuffer& other, const Rect& rect);

  ColourMap* getColourMap() const override { return colourMap_; }
  // Fatal for a rectangle that is neither empty nor inside the buffer.
  uint8_t* getPixelsRW(const Rect& r, int* stride) override;

  int getStride() const { return stride_; }

 protected:
  FullFramePixelBuffer() = default;

  ColourMap* colourMap_ = nullptr;
  uint8_t* data_ = nullptr;
  int stride_ = 0;
};

}  // namespace rfb
