#pragma once

#include <cstdint>
#include <vector>

#include "rfb/Region.h"

namespace test {

// A square of pixels, each in or out: what a region means, without any of its cleverness.
class RegionModel {
 public:
  static constexpr int kSize = 24;

  explicit RegionModel(rfb::Point origin) : origin_(origin), pixels_(kSize * kSize) {}

  bool at(int x, int y) const {
    const rfb::Point p = rfb::Point(x, y) - origin_;
    return rfb::Rect(0, 0, kSize, kSize).contains(p) && pixels_[index(p.x, p.y)];
  }
  template <typename F>
  RegionModel& fill(const F& inside) {
    for (int y = 0; y < kSize; y++)
      for (int x = 0; x < kSize; x++) pixels_[index(x, y)] = inside(x + origin_.x, y + origin_.y);
    return *this;
  }
  void add(const rfb::Rect& r) {
    fill([&](int x, int y) { return at(x, y) || r.contains({x, y}); });
  }

  // The only list of boxes that obeys the banding rule and covers these pixels.
  std::vector<mi::Box> boxes() const {
    std::vector<mi::Box> all, above;
    for (int y = 0; y <= kSize; y++) {
      std::vector<mi::Box> row;
      for (int x = 0; y < kSize && x < kSize; x++) {
        if (!pixels_[index(x, y)]) continue;
        const int x1 = x;
        while (x < kSize && pixels_[index(x, y)]) x++;
        const rfb::Rect run(x1, y, x, y + 1);
        row.push_back(rfb::RgnRect(run.translate(origin_)).box);
      }
      bool same = row.size() == above.size();
      for (size_t i = 0; same && i < row.size(); i++)
        same = row[i].x1 == above[i].x1 && row[i].x2 == above[i].x2;
      for (mi::Box& box : above) box.y2 = static_cast<int16_t>(box.y2 + same);
      if (same) continue;
      all.insert(all.end(), above.begin(), above.end());
      above = row;
    }
    return all;
  }

 private:
  static size_t index(int x, int y) { return static_cast<size_t>(y * kSize + x); }

  rfb::Point origin_;
  std::vector<bool> pixels_;
};

}  // namespace test
