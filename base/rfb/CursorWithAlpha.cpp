#include "rfb/CursorWithAlpha.h"

#include "rfb/PixelOps.h"

namespace rfb {

CursorWithAlpha::CursorWithAlpha(const PixelFormat& format, int width, int height,
                                 const Point& hotspot)
    : Cursor(format, width, height, hotspot) {}

template <typename T>
void CursorWithAlpha::fill(const T* pixels) {
  const bool swapped = isSwapped(format_);
  for (int y = rect_.tl.y; y < rect_.br.y; ++y) {
    for (int x = rect_.tl.x; x < rect_.br.x; ++x) {
      const uint32_t argb = static_cast<uint32_t>(*pixels++);
      setPixel(x, y, swapped ? swapPixel<4>(argb) : argb);
    }
  }
}

void CursorWithAlpha::setArgb(const uint32_t* pixels) {
  fill(pixels);
}

void CursorWithAlpha::setArgb(const unsigned long* pixels) {
  fill(pixels);
}

void CursorWithAlpha::draw(WritablePixelBuffer& buffer, const Point& position) {
  const Rect visible = rect_.translate(position).intersect(buffer.getRect());
  combinePixels(buffer, visible, *this, visible.tl - position, OverOp());
}

std::unique_ptr<Cursor> CursorWithAlpha::copy() {
  auto result = std::make_unique<CursorWithAlpha>(format_, width(), height(), hotspot());
  result->copyPixels(*this);
  result->threshold_ = threshold_;
  return result;
}

std::unique_ptr<CursorWithAlpha> CursorWithAlpha::toAlpha(const PixelFormat& format) {
  auto result = std::make_unique<CursorWithAlpha>(format, width(), height(), hotspot());
  combinePixels(*result, rect_, *this, rect_.tl, CopyOp());
  result->threshold_ = threshold_;
  return result;
}

}  // namespace rfb
