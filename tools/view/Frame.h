#pragma once

#include <ruvohost/Framebuffer.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Pixels.h"

namespace view {

// What the desktop looks like now, in a form that is cheap to compare with what a page has: a hash
// for each cell, which is kCellWidth pixels of one row. Each tile of kTileRows rows of a cell's
// width knows when it changed. Coordinates have the framebuffer's corner as 0,0.
class Frame {
 public:
  static constexpr int kCellWidth = 32;
  static constexpr int kTileRows = 16;
  // A tile that changes again within this time keeps changing, and rests when it did not.
  static constexpr int64_t kRestMs = 110;
  static constexpr int64_t kAgainMs = 250;

  explicit Frame(const ruvohost::Framebuffer& framebuffer);

  const ruvohost::Framebuffer& framebuffer() const { return framebuffer_; }
  int width() const { return framebuffer_.width(); }
  int height() const { return framebuffer_.height(); }
  int columns() const { return columns_; }
  Rect bounds() const { return {0, 0, width(), height()}; }

  // Looks at an area that the agent says has changed. Returns whether its pixels may differ from
  // before; also true when an earlier call with the same nowMs has found a change in the same tile.
  bool changed(const Rect& area, int64_t nowMs);
  // The colours of a colour map are others.
  void colourMapChanged(const ruvohost::Framebuffer& framebuffer, int64_t nowMs);

  // Even, and never 0.
  uint64_t hash(int column, int y) const { return hashes_[index(column, y)]; }
  // Of the pixels as they are at this moment.
  uint64_t hashNow(int column, int y) const;
  size_t index(int column, int y) const {
    return static_cast<size_t>(y) * static_cast<size_t>(columns_) + static_cast<size_t>(column);
  }

  // Of the tile that holds this cell.
  bool keepsChanging(int column, int y, int64_t nowMs) const;
  int64_t lastChangeMs(int column, int y) const { return tiles_[tileIndex(column, y)].lastMs; }

 private:
  struct Tile {
    int64_t lastMs = -1000000, beforeMs = -2000000;
  };

  size_t tileIndex(int column, int y) const { return index(column, y / kTileRows); }
  uint64_t hashOf(const uint8_t* pixels, int width) const;

  ruvohost::Framebuffer framebuffer_;
  int columns_;
  std::vector<uint64_t> hashes_;
  std::vector<Tile> tiles_;
  uint64_t seed_;
};

}  // namespace view
