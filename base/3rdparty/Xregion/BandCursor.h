#pragma once

#include <algorithm>
#include <cstddef>
#include <span>

#include "Xregion/Box.h"

namespace mi {

// Walks the bands of a list. Bands above a given row are passed over by binary search.
class BandCursor {
 public:
  explicit BandCursor(std::span<const Box> boxes)
      : band_(boxes.data()), end_(band_ + boxes.size()) {
    moveTo(band_);
  }

  bool atEnd() const { return band_ == end_; }
  const Box* band() const { return band_; }
  const Box* bandEnd() const { return bandEnd_; }
  const Box* end() const { return end_; }
  size_t length() const { return static_cast<size_t>(bandEnd_ - band_); }
  int16_t y1() const { return band_->y1; }
  int16_t y2() const { return band_->y2; }

  void advance() {
    const std::ptrdiff_t length = bandEnd_ - band_;
    band_ = bandEnd_;
    // Neighbouring bands are often equally long.
    if (end_ - band_ >= length) {
      const int16_t y1 = band_->y1;
      const Box* guess = band_ + length;
      if (guess[-1].y1 == y1 && (guess == end_ || guess->y1 != y1)) {
        bandEnd_ = guess;
        return;
      }
    }
    findBandEnd();
  }

  // Goes on to the band that begins with a box (or to the end).
  void moveTo(const Box* band) {
    band_ = band;
    bandEnd_ = band;
    findBandEnd();
  }

  // The first box, from the present band on, that reaches below row y.
  const Box* firstBelow(int32_t y) const {
    std::ptrdiff_t step = 1;
    const Box* low = band_;
    while (end_ - low > step && low[step].y2 <= y) {
      low += step;
      step *= 2;
    }
    return std::partition_point(low, low + std::min(step, end_ - low),
                                [y](const Box& box) { return box.y2 <= y; });
  }

 private:
  void findBandEnd() {
    if (bandEnd_ == end_) return;
    const int16_t y1 = band_->y1;
    do {
      ++bandEnd_;
    } while (bandEnd_ != end_ && bandEnd_->y1 == y1);
  }

  const Box* band_;
  const Box* bandEnd_;
  const Box* end_;
};

}  // namespace mi
