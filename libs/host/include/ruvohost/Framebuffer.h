#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

#include "ruvohost/Types.h"

namespace ruvohost {

// A view of the pixels that an agent shares. It stays readable, with the size it has, after a
// resize or the agent's end have put another in its place; the pixels change as the agent captures.
class Framebuffer {
 public:
  struct Colour {
    uint8_t red = 0, green = 0, blue = 0;
  };

  // Empty.
  Framebuffer() = default;
  // Of the library: `memory` holds height() rows of `stride` pixels.
  Framebuffer(std::shared_ptr<const void> memory, const uint8_t* pixels, const Rect& rect,
              size_t stride, const PixelFormat& format, std::vector<Colour> colours);

  bool isEmpty() const { return pixels_ == nullptr; }
  // In the coordinates of the desktop.
  const Rect& rect() const { return rect_; }
  int width() const { return rect_.width(); }
  int height() const { return rect_.height(); }
  const PixelFormat& format() const { return format_; }
  // Of a colour-map format.
  const std::vector<Colour>& colours() const { return colours_; }

  // The bytes of a row, 0 being the topmost. Throws Error for one that is not there.
  std::span<const uint8_t> row(int y) const;
  // The part of an area (in the coordinates of the desktop) that lies inside, as rows of red,
  // green, blue and 255, 8 bits each, without padding. `clipped` (may be null) tells what was read.
  std::vector<uint8_t> rgba(const Rect& area, Rect* clipped = nullptr) const;
  std::vector<uint8_t> rgba() const { return rgba(rect_); }

 private:
  std::shared_ptr<const void> memory_;
  const uint8_t* pixels_ = nullptr;
  Rect rect_;
  size_t stride_ = 0;  // pixels
  PixelFormat format_;
  std::vector<Colour> colours_;
};

}  // namespace ruvohost
