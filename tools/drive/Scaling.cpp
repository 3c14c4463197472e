#include "Scaling.h"

#include <algorithm>

namespace drive {

Colour meanOf(const Picture& picture, int x1, int y1, int x2, int y2) {
  unsigned red = 0, green = 0, blue = 0, count = 0;
  for (int y = y1; y < std::max(y2, y1 + 1); ++y) {
    const uint8_t* pixel = picture.rgba() + (size_t(y) * size_t(picture.width()) + size_t(x1)) * 4;
    for (int x = x1; x < std::max(x2, x1 + 1); ++x, pixel += 4) {
      red += pixel[0];
      green += pixel[1];
      blue += pixel[2];
      ++count;
    }
  }
  return {uint8_t(red / count), uint8_t(green / count), uint8_t(blue / count)};
}

Extent fitting(const Picture& picture, int width, int height) {
  const double scale =
      std::min({1.0, double(width) / picture.width(), double(height) / picture.height()});
  return {std::max(1, static_cast<int>(picture.width() * scale)),
          std::max(1, static_cast<int>(picture.height() * scale))};
}

std::vector<uint8_t> scaled(const Picture& picture, const Extent& extent) {
  std::vector<uint8_t> pixels;
  pixels.reserve(size_t(extent.width) * size_t(extent.height) * 4);
  const auto x = [&](int column) { return column * picture.width() / extent.width; };
  const auto y = [&](int row) { return row * picture.height() / extent.height; };
  for (int row = 0; row < extent.height; ++row) {
    for (int column = 0; column < extent.width; ++column) {
      const Colour mean = meanOf(picture, x(column), y(row), x(column + 1), y(row + 1));
      pixels.insert(pixels.end(), {mean.red, mean.green, mean.blue, 255});
    }
  }
  return pixels;
}

}  // namespace drive
