#include "Frame.h"

#define XXH_INLINE_ALL
#include <openssl/rand.h>
#include <xxhash.h>

#include <algorithm>

namespace view {

Frame::Frame(const ruvohost::Framebuffer& framebuffer)
    : framebuffer_(framebuffer), columns_((framebuffer.width() + kCellWidth - 1) / kCellWidth) {
  const size_t cells = static_cast<size_t>(columns_) * static_cast<size_t>(height());
  hashes_.resize(cells);
  tiles_.resize(static_cast<size_t>(columns_) *
                static_cast<size_t>((height() + kTileRows - 1) / kTileRows));
  // What a desktop shows can be made so that hashes of a known seed are the same.
  RAND_bytes(reinterpret_cast<unsigned char*>(&seed_), sizeof seed_);
  changed(bounds(), -kAgainMs);
}

uint64_t Frame::hashOf(const uint8_t* pixels, int width) const {
  const uint64_t hash = XXH3_64bits_withSeed(pixels, static_cast<size_t>(width) * 4, seed_);
  return std::max<uint64_t>(hash & ~uint64_t{1}, 2);
}

uint64_t Frame::hashNow(int column, int y) const {
  const int x = column * kCellWidth;
  const int right = std::min(x + kCellWidth, width());
  std::vector<uint8_t> scratch;
  const Pixels pixels = pixelsOf(framebuffer_, {x, y, right, y + 1}, scratch);
  return hashOf(pixels.data, pixels.width);
}

bool Frame::changed(const Rect& area, int64_t nowMs) {
  const int first = std::max(area.x1, 0) / kCellWidth;
  const int last = (std::min(area.x2, width()) + kCellWidth - 1) / kCellWidth;
  const int top = std::max(area.y1, 0);
  const int bottom = std::min(area.y2, height());
  if (first >= last || top >= bottom) return false;
  const int left = first * kCellWidth;
  const int right = std::min(last * kCellWidth, width());
  std::vector<uint8_t> scratch;
  const Pixels pixels = pixelsOf(framebuffer_, {left, top, right, bottom}, scratch);
  bool any = false;
  for (int y = top; y < bottom; ++y) {
    const uint8_t* row = pixels.row(y - top);
    for (int column = first; column < last; ++column) {
      const int x = column * kCellWidth;
      const uint64_t hash =
          hashOf(row + static_cast<size_t>(x - left) * 4, std::min(kCellWidth, width() - x));
      uint64_t& known = hashes_[index(column, y)];
      Tile& tile = tiles_[tileIndex(column, y)];
      if (hash == known) {
        // Of two areas in one cell, the first has brought the cell's new hash.
        any = any || tile.lastMs == nowMs;
        continue;
      }
      known = hash;
      any = true;
      if (tile.lastMs != nowMs) {
        tile.beforeMs = tile.lastMs;
        tile.lastMs = nowMs;
      }
    }
  }
  return any;
}

void Frame::colourMapChanged(const ruvohost::Framebuffer& framebuffer, int64_t nowMs) {
  framebuffer_ = framebuffer;
  changed(bounds(), nowMs);
}

bool Frame::keepsChanging(int column, int y, int64_t nowMs) const {
  const Tile& tile = tiles_[tileIndex(column, y)];
  return nowMs - tile.lastMs < kRestMs && tile.lastMs - tile.beforeMs < kAgainMs;
}

}  // namespace view
