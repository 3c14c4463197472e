#pragma once

#include <cstdint>

namespace rfb {

// A position or an offset in pixels. Sums wrap around rather than overflow.
struct Point {
  constexpr Point() = default;
  constexpr Point(int32_t px, int32_t py) : x(px), y(py) {}

  constexpr Point operator-() const { return Point() - *this; }
  constexpr Point operator+(const Point& p) const { return {add(x, p.x), add(y, p.y)}; }
  constexpr Point operator-(const Point& p) const { return {subtract(x, p.x), subtract(y, p.y)}; }
  friend constexpr bool operator==(const Point&, const Point&) = default;

  static constexpr int32_t add(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
  }
  static constexpr int32_t subtract(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
  }

  int32_t x = 0;
  int32_t y = 0;
};

}  // namespace rfb
