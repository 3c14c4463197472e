// The conversions between the two kinds of cursors, for which neither needs to know the other.

#include <algorithm>

#include "rfb/CursorWithAlpha.h"
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

std::unique_ptr<CursorWithAlpha> CursorWithMask::toAlpha(const PixelFormat& format) {
  auto result = std::make_unique<CursorWithAlpha>(format, width(), height(), hotspot());
  const CombineMask mask = combineMask(rect_.tl);
  // The pixels are opaque whatever their format says: the mask alone decides.
  const auto opaque = [](const Colour& source, Colour& destination) {
    destination = {source.red, source.green, source.blue, 255};
  };
  combinePixels(*result, rect_, *this, rect_.tl, opaque, &mask);
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
