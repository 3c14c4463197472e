#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "rfb/Region.h"

namespace test {

// A square of pixels, each in or out: what a region means, without any of its cleverness.
class RegionModel {
 public:
  static constexpr int kSize = 24;

  explicit RegionModel(rfb::Point origin) : origin_(origin), pixels_(kSize * kSize) {}

  bool at(int x, int y) const {
    x -= origin_.x;
    y -= origin_.y;
    return x >= 0 && x < kSize && y >= 0 && y < kSize && pixels_[index(x, y)];
  }
  template <typename F>
  RegionModel& fill(const F& inside) {
    for (int y = 0; y < kSize; y++) {
      for (int x = 0; x < kSize; x++) {
        pixels_[index(x, y)] = inside(x + origin_.x, y + origin_.y);
      }
    }
    return *this;
  }
  void add(const rfb::Rect& r) {
    fill([&](int x, int y) { return at(x, y) || r.contains({x, y}); });
  }

  // The only list of boxes that obeys the banding rule and covers these pixels.
  std::vector<mi::Box> boxes() const {
    std::vector<mi::Box> all, above;
    for (int y = 0; y <= kSize; y++) {
      std::vector<mi::Box> row = y < kSize ? rowBoxes(y) : std::vector<mi::Box>();
      bool same = row.size() == above.size();
      for (size_t i = 0; same && i < row.size(); i++) {
        same = row[i].x1 == above[i].x1 && row[i].x2 == above[i].x2;
      }
      if (same) {
        for (mi::Box& box : above) box.y2++;
      } else {
        all.insert(all.end(), above.begin(), above.end());
        above = row;
      }
    }
    all.insert(all.end(), above.begin(), above.end());
    return all;
  }

 private:
  static size_t index(int x, int y) { return static_cast<size_t>(y * kSize + x); }

  std::vector<mi::Box> rowBoxes(int y) const {
    std::vector<mi::Box> row;
    const auto y1 = static_cast<int16_t>(origin_.y + y);
    for (int x = 0; x < kSize; x++) {
      if (!pixels_[index(x, y)]) continue;
      const auto x1 = static_cast<int16_t>(origin_.x + x);
      while (x < kSize && pixels_[index(x, y)]) x++;
      row.push_back({x1, y1, static_cast<int16_t>(origin_.x + x), static_cast<int16_t>(y1 + 1)});
    }
    return row;
  }

  rfb::Point origin_;
  std::vector<bool> pixels_;
};

}  // namespace test
