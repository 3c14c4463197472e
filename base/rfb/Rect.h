#pragma once

#include <algorithm>
#include <cstdint>
#include <string>

#include "plat/Exception.h"
#include "rfb/Point.h"

namespace rfb {

// A rectangle of pixels: br is exclusive. It is empty when br.x <= tl.x or br.y <= tl.y.
struct Rect {
  constexpr Rect() = default;
  constexpr Rect(Point topLeft, Point bottomRight) : tl(topLeft), br(bottomRight) {}
  constexpr Rect(int32_t x1, int32_t y1, int32_t x2, int32_t y2) : tl(x1, y1), br(x2, y2) {}

  constexpr int32_t width() const { return Point::subtract(br.x, tl.x); }
  constexpr int32_t height() const { return Point::subtract(br.y, tl.y); }
  constexpr bool isEmpty() const { return br.x <= tl.x || br.y <= tl.y; }
  // In pixels; 0 when empty.
  constexpr uint64_t area() const {
    if (isEmpty()) return 0;
    return static_cast<uint64_t>(int64_t{br.x} - tl.x) *
           static_cast<uint64_t>(int64_t{br.y} - tl.y);
  }

  constexpr bool contains(const Point& p) const {
    return p.x >= tl.x && p.x < br.x && p.y >= tl.y && p.y < br.y;
  }
  // Compares the corners alone, also for empty rectangles.
  constexpr bool encloses(const Rect& r) const {
    return r.tl.x >= tl.x && r.tl.y >= tl.y && r.br.x <= br.x && r.br.y <= br.y;
  }
  constexpr bool overlaps(const Rect& r) const { return !intersect(r).isEmpty(); }

  // The common part; Rect() when there is none.
  constexpr Rect intersect(const Rect& r) const {
    const Rect common(std::max(tl.x, r.tl.x), std::max(tl.y, r.tl.y), std::min(br.x, r.br.x),
                      std::min(br.y, r.br.y));
    return common.isEmpty() ? Rect() : common;
  }
  // The bounding rectangle of both; an empty one does not count.
  constexpr Rect unionBoundary(const Rect& r) const {
    if (isEmpty()) return r;
    if (r.isEmpty()) return *this;
    return {std::min(tl.x, r.tl.x), std::min(tl.y, r.tl.y), std::max(br.x, r.br.x),
            std::max(br.y, r.br.y)};
  }
  constexpr Rect translate(const Point& delta) const { return {tl + delta, br + delta}; }

  // "tl.x,tl.y to br.x,br.y"
  std::string str() const { return plat::format("%d,%d to %d,%d", tl.x, tl.y, br.x, br.y); }

  friend constexpr bool operator==(const Rect&, const Rect&) = default;

  Point tl;
  Point br;
};

}  // namespace rfb
