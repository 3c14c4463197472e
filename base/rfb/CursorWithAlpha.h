#pragma once

#include "rfb/Cursor.h"

namespace rfb {

// A cursor whose pixels carry alpha; the colours are premultiplied.
class CursorWithAlpha : public Cursor {
 public:
  // The pixels are zero: an invisible cursor.
  CursorWithAlpha(const PixelFormat& format, int width, int height, const Point& hotspot);

  // Fills a cursor in alphaFormat() from width x height values of premultiplied 0xAARRGGBB, row by
  // row. X hands out its cursors as arrays of long; what is beyond 32 bits is cut off.
  void setArgb(const uint32_t* pixels);
  void setArgb(const unsigned long* pixels);

  // The alpha that divides transparent (below) from opaque when a mask is needed; 128 at first.
  uint8_t threshold() const { return threshold_; }
  void setThreshold(uint8_t threshold) { threshold_ = threshold; }

  void draw(WritablePixelBuffer& buffer, const Point& position) override;
  std::unique_ptr<Cursor> copy() override;
  std::unique_ptr<CursorWithAlpha> toAlpha(const PixelFormat& format) override;
  std::unique_ptr<CursorWithMask> toMask(const PixelFormat& format) override;

 private:
  template <typename T>
  void fill(const T* pixels);

  uint8_t threshold_ = 128;
};

}  // namespace rfb
