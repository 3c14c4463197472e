#include "rfb/CursorWithAlpha.h"

#include <algorithm>

#include "rfb/CursorWithMask.h"
#include "rfb/PixelOps.h"

namespace rfb {

namespace {

// Undoes the premultiplication and drops the alpha.
struct OpaqueOp {
  void operator()(const Colour& source, Colour& destination) const {
    const unsigned alpha = std::max<unsigned>(source.alpha, 1);
    const auto full = [alpha](unsigned v) {
      return static_cast<uint8_t>(std::min(255u, (v * 255 + alpha / 2) / alpha));
    };
    destination = {full(source.red), full(source.green), full(source.blue), 255};
  }
};

}  // namespace

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

std::unique_ptr<CursorWithMask> CursorWithAlpha::toMask(const PixelFormat& format) {
  auto result = std::make_unique<CursorWithMask>(format, width(), height(), hotspot());
  const PixelCodec codec(format_, nullptr);
  const int bytes = format_.bytesPerPixel();
  for (int y = rect_.tl.y; y < rect_.br.y; ++y) {
    for (int x = rect_.tl.x; x < rect_.br.x; ++x) {
      uint32_t value = getPixel(x, y);
      if (codec.swapped()) value = swapPixel(value, bytes);
      if (codec.decode(value).alpha >= threshold_) result->setMaskBit(x, y, true);
    }
  }
  const CombineMask mask = result->combineMask(rect_.tl);
  combinePixels(*result, rect_, *this, rect_.tl, OpaqueOp(), &mask);
  return result;
}

}  // namespace rfb
