#pragma once

#include <cstdint>
#include <vector>

#include "Pixels.h"

namespace view {

// How a rectangle travels; the values are the wire's.
enum class Encoding : uint8_t { kSolid = 0, kCopy = 1, kJpeg = 2, kPng = 3, kRaw = 4 };

// A rectangle on its way to a page.
struct Piece {
  Rect rect;
  Encoding encoding = Encoding::kPng;
  std::vector<uint8_t> data;
};

// What the pixels of an area are like: what suits it follows.
enum class Content : uint8_t {
  kSolid,
  kFewColours,   // drawn: text, windows
  kManyColours,  // pictures, films
};

bool isSolid(const Pixels& pixels);
// Looks at each second row only, unless the area is solid.
Content contentOf(const Pixels& pixels);

std::vector<uint8_t> encodeSolid(const Pixels& pixels);
// Rows of red, green, blue and 255.
std::vector<uint8_t> encodeRaw(const Pixels& pixels);
// Lossless: with a palette when there are at most 256 colours. Throws std::runtime_error.
std::vector<uint8_t> encodePng(const Pixels& pixels);
// Throws std::runtime_error.
std::vector<uint8_t> encodeJpeg(const Pixels& pixels, int quality);

}  // namespace view
