#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "Xregion/Box.h"
#include "Xregion/Rows.h"

namespace mi {

// Whether two bands of equally many boxes have the same x spans.
inline bool sameSpans(const Box* a, const Box* b, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    if (a[i].x1 != b[i].x1 || a[i].x2 != b[i].x2) return false;
  }
  return true;
}

// Builds a list of boxes band by band, from top to bottom, and merges each finished band into the
// one above when the two touch and have the same x spans.
class BandBuilder {
 public:
  // Takes over a block to build in, if there is one.
  explicit BandBuilder(Data* block) noexcept : block_(block) {
    if (block_) attach(0, 0);
  }
  ~BandBuilder() {
    if (block_) freeData(block_);
  }
  BandBuilder(const BandBuilder&) = delete;
  BandBuilder& operator=(const BandBuilder&) = delete;

  // Makes room for count more boxes and returns the place of the next one. Throws std::bad_alloc.
  Box* reserve(size_t count) {
    if (static_cast<size_t>(limit_ - next_) < count) grow(count);
    return next_;
  }

  // Ends the band whose boxes were written from the place of the next box up to end.
  void finishBand(Box* end) {
    Box* band = next_;
    if (end == band) return;
    const size_t count = static_cast<size_t>(end - band);
    if (static_cast<size_t>(band - lastBand_) == count && lastBand_->y2 == band->y1 &&
        sameSpans(lastBand_, band, count)) {
      const int16_t y2 = band->y2;
      for (Box* box = lastBand_; box != band; ++box) box->y2 = y2;
      return;
    }
    lastBand_ = band;
    next_ = end;
  }

  // Adds a band with other y coordinates.
  void addBand(const Box* band, const Box* bandEnd, int16_t y1, int16_t y2) {
    Box* out = reserve(static_cast<size_t>(bandEnd - band));
    finishBand(Rows(y1, y2).putAll(out, band, bandEnd));
  }

  // Adds bands that obey the banding rule among themselves; the first one ends at firstEnd.
  void addBands(const Box* boxes, const Box* firstEnd, const Box* end) {
    if (boxes == end) return;
    Box* out = reserve(static_cast<size_t>(end - boxes));
    std::copy(boxes, firstEnd, out);
    finishBand(out + (firstEnd - boxes));
    if (firstEnd == end) return;
    next_ = std::copy(firstEnd, end, next_);
    lastBand_ = next_ - 1;
    const int16_t y1 = lastBand_->y1;
    while (lastBand_[-1].y1 == y1) --lastBand_;  // the first band stands before this one
  }

  size_t count() const { return static_cast<size_t>(next_ - first_); }
  const Box* first() const { return first_; }

  // Hands over the block with its count set.
  Data* release() noexcept {
    block_->numRects = static_cast<int32_t>(count());
    Data* block = block_;
    block_ = nullptr;
    return block;
  }

 private:
  void grow(size_t count);
  void attach(size_t used, size_t lastBand) {
    first_ = block_->boxes();
    limit_ = first_ + block_->size;
    next_ = first_ + used;
    lastBand_ = first_ + lastBand;
  }

  Data* block_;
  Box* first_ = nullptr;
  Box* next_ = nullptr;
  Box* limit_ = nullptr;
  Box* lastBand_ = nullptr;  // start of the band that ends at next_, or next_ itself
};

}  // namespace mi
