#pragma once

#include <cstddef>
#include <vector>

#include "rfb/Cursor.h"

namespace rfb {

struct CombineMask;

// A cursor with a bit for each pixel that says whether it is drawn.
class CursorWithMask : public Cursor {
 public:
  // Pixels and mask are zero: an invisible cursor.
  CursorWithMask(const PixelFormat& format, int width, int height, const Point& hotspot,
                 ColourMap* colourMap = nullptr);

  // Rows of maskStride() bytes, top to bottom; the most significant bit is the leftmost pixel.
  uint8_t* mask() { return mask_.data(); }
  const uint8_t* mask() const { return mask_.data(); }
  int maskStride() const { return (width() + 7) / 8; }
  size_t maskSize() const { return mask_.size(); }
  // Coordinates are those of the cursor's rectangle.
  bool maskBit(int x, int y) const;
  void setMaskBit(int x, int y, bool on);
  // For combining the pixels at topLeft and on.
  CombineMask combineMask(const Point& topLeft) const;

  void draw(WritablePixelBuffer& buffer, const Point& position) override;
  std::unique_ptr<Cursor> copy() override;
  std::unique_ptr<CursorWithAlpha> toAlpha(const PixelFormat& format) override;
  std::unique_ptr<CursorWithMask> toMask(const PixelFormat& format) override;

 private:
  size_t maskIndex(int x, int y) const;

  std::vector<uint8_t> mask_;
};

}  // namespace rfb
