#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

namespace tx {

// The image of the X cursor at one moment.
struct CursorImage {
  // Pixels. Of a larger cursor only the size is told: X clients choose it, and what they may choose
  // takes seconds and gigabytes to hand on.
  static constexpr int kMaxSide = 512;

  // Asks the X server by XFIXES, which must be present. Nothing when it has no cursor to show, or
  // refuses. Throws plat::Exception when there is no memory for the pixels.
  static std::optional<CursorImage> fetch();

  bool isTooLarge() const { return width > kMaxSide || height > kMaxSide; }

  uint32_t serial = 0;  // changes with the cursor
  // The number of the request that fetched it: what the X server had told before is about this
  // cursor or an older one.
  unsigned long request = 0;
  int width = 0;
  int height = 0;
  int hotspotX = 0;
  int hotspotY = 0;
  std::unique_ptr<uint32_t[]> argb;  // premultiplied, row by row; null when it is too large
};

}  // namespace tx
