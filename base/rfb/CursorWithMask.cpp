#include "rfb/CursorWithMask.h"

#include "rfb/PixelOps.h"

namespace rfb {

CursorWithMask::CursorWithMask(const PixelFormat& format, int width, int height,
                               const Point& hotspot, ColourMap* colourMap)
    : Cursor(format, width, height, hotspot, colourMap) {
  if (!rect_.isEmpty()) {
    mask_.resize(static_cast<size_t>(maskStride()) * static_cast<size_t>(this->height()));
  }
}

size_t CursorWithMask::maskIndex(int x, int y) const {
  return static_cast<size_t>((y - rect_.tl.y) * maskStride() + (x - rect_.tl.x) / 8);
}

bool CursorWithMask::maskBit(int x, int y) const {
  if (!rect_.contains({x, y})) return false;
  return (mask_[maskIndex(x, y)] >> (7 - (x - rect_.tl.x) % 8) & 1) != 0;
}

void CursorWithMask::setMaskBit(int x, int y, bool on) {
  if (!rect_.contains({x, y})) return;
  const uint8_t bit = static_cast<uint8_t>(0x80 >> (x - rect_.tl.x) % 8);
  uint8_t& byte = mask_[maskIndex(x, y)];
  byte = static_cast<uint8_t>(on ? byte | bit : byte & ~bit);
}

CombineMask CursorWithMask::combineMask(const Point& topLeft) const {
  const Point offset = topLeft - rect_.tl;
  const ptrdiff_t step = maskStride();
  return {mask_.data() + offset.y * step, step, offset.x};
}

void CursorWithMask::draw(WritablePixelBuffer& buffer, const Point& position) {
  const Rect visible = rect_.translate(position).intersect(buffer.getRect());
  if (visible.isEmpty()) return;
  const CombineMask mask = combineMask(visible.tl - position);
  combinePixels(buffer, visible, *this, visible.tl - position, CopyOp(), &mask);
}

std::unique_ptr<Cursor> CursorWithMask::copy() {
  auto result =
      std::make_unique<CursorWithMask>(format_, width(), height(), hotspot(), getColourMap());
  result->copyPixels(*this);
  result->mask_ = mask_;
  return result;
}

std::unique_ptr<CursorWithMask> CursorWithMask::toMask(const PixelFormat& format) {
  auto result = std::make_unique<CursorWithMask>(format, width(), height(), hotspot());
  combinePixels(*result, rect_, *this, rect_.tl, CopyOp());
  result->mask_ = mask_;
  return result;
}

}  // namespace rfb
