#include "rfb/CombinePixels.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "rfb/ColourMap.h"
#include "rfb/FullFramePixelBuffer.h"
#include "rfb/PixelOps.h"

namespace rfb {
namespace {

struct Map : ColourMap {
  void lookup(int index, int* red, int* green, int* blue) const override {
    const int i = index < size() ? index : 0;
    *red = i * 37 & 255;
    *green = i * 101 & 255;
    *blue = i * 59 & 255;
  }
  int size() const override { return 200; }
} colourMap;

TEST(ColourMap, AnEntryIsNearestToItself) {
  for (int i = 0; i < colourMap.size(); ++i) {
    int r, g, b;
    colourMap.lookup(i, &r, &g, &b);
    EXPECT_EQ(colourMap.nearest(r, g, b), i);
  }
}

// What is done to one pixel, told from its bytes.
struct Model {
  Colour read(const uint8_t* p) const {
    uint32_t value = 0;
    for (int i = 0; i < bytes; ++i) value |= uint32_t{p[i]} << 8 * position(i);
    if (!pf.trueColour) {
      int r, g, b;
      colourMap.lookup(static_cast<int>(value), &r, &g, &b);
      return {static_cast<uint8_t>(r), static_cast<uint8_t>(g), static_cast<uint8_t>(b), 255};
    }
    const auto scaled = [value](int shift, uint32_t max) {
      return static_cast<uint8_t>(((value >> shift & max) * 255 + max / 2) / max);
    };
    return {scaled(pf.redShift, pf.redMax), scaled(pf.greenShift, pf.greenMax),
            scaled(pf.blueShift, pf.blueMax),
            pf.alphaMax ? scaled(pf.alphaShift, pf.alphaMax) : uint8_t{255}};
  }
  void write(uint8_t* p, const Colour& c) const {
    const auto scaled = [](uint32_t v, int shift, uint32_t max) {
      return (v * max + 127) / 255 << shift;
    };
    uint32_t value =
        scaled(c.red, pf.redShift, pf.redMax) | scaled(c.green, pf.greenShift, pf.greenMax) |
        scaled(c.blue, pf.blueShift, pf.blueMax) | scaled(c.alpha, pf.alphaShift, pf.alphaMax);
    if (!pf.trueColour) value = static_cast<uint32_t>(colourMap.nearest(c.red, c.green, c.blue));
    for (int i = 0; i < bytes; ++i) p[i] = static_cast<uint8_t>(value >> 8 * position(i));
  }
  // Which byte of the value, counted from the least significant, is the i-th in memory.
  int position(int i) const { return pf.bigEndian && bytes != 3 ? bytes - 1 - i : i; }

  const PixelFormat pf;
  const int bytes = pf.bytesPerPixel();
};

// Not symmetrical in anything.
struct OddOp {
  void operator()(const Colour& s, Colour& d) const {
    d = {static_cast<uint8_t>(s.green + d.red), static_cast<uint8_t>(s.blue ^ d.alpha),
         static_cast<uint8_t>(s.alpha - d.blue), static_cast<uint8_t>(s.red | d.green)};
  }
};

// Each width, byte order and way to scale.
const PixelFormat kFormats[] = {
    PixelFormat(),
    PixelFormat(8, 8, false, false),
    PixelFormat(16, 16, true, true, 31, 63, 31, 11, 5, 0),
    PixelFormat(16, 16, false, true, 15, 15, 15, 8, 4, 0, 12, 15),
    PixelFormat(24, 24, true, true, 255, 255, 255, 0, 8, 16),
    PixelFormat(32, 24, false, true, 255, 255, 255, 16, 8, 0),
    PixelFormat(32, 24, false, true, 255, 255, 255, 0, 8, 16),
    PixelFormat(32, 32, false, true, 255, 255, 255, 16, 8, 0, 24, 255),
    PixelFormat(32, 32, true, true, 255, 255, 255, 16, 8, 0, 24, 255),
    PixelFormat(32, 32, false, true, 1023, 1023, 1023, 20, 10, 0, 30, 3),
};

constexpr int kStride = 20;
constexpr int kRows = 6;
const Rect kSourceArea(-3, -2, -3 + kStride, -2 + kRows);
const Rect kDestinationArea(40, 30, 40 + kStride, 30 + kRows);
const Rect kSourceRect(-2, -1, 13, 3);
const Rect kDestinationRect(43, 31, 58, 35);

std::vector<uint8_t> noise(const PixelFormat& format, unsigned seed) {
  std::mt19937 random(seed);
  std::vector<uint8_t> bytes(static_cast<size_t>(kStride * kRows * format.bytesPerPixel()));
  for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
  // Whole stretches of zero and of all bits, which blending treats apart.
  const size_t row = bytes.size() / kRows;
  std::fill_n(bytes.begin() + static_cast<ptrdiff_t>(row), row, uint8_t{0});
  std::fill_n(bytes.begin() + static_cast<ptrdiff_t>(2 * row), row / 2, uint8_t{255});
  if (format.bpp == 32) {
    for (size_t i = 3 * row; i < 4 * row; i += 4) bytes[i + 3] = i % 24 ? 255 : 254;
  }
  return bytes;
}

template <class Op>
void compare(Op op) {
  for (const PixelFormat& from : kFormats) {
    for (const PixelFormat& to : kFormats) {
      std::vector<uint8_t> source = noise(from, 1), destination = noise(to, 2);
      std::vector<uint8_t> expected = destination;
      const Model read{from}, write{to};
      for (int y = 0; y < kSourceRect.height(); ++y) {
        for (int x = 0; x < kSourceRect.width(); ++x) {
          const uint8_t* s =
              &source[static_cast<size_t>(((y + 1) * kStride + x + 1) * from.bpp / 8)];
          uint8_t* d = &expected[static_cast<size_t>(((y + 1) * kStride + x + 3) * to.bpp / 8)];
          Colour colour = write.read(d);
          op(read.read(s), colour);
          write.write(d, colour);
        }
      }
      FullFramePixelBuffer sourceBuffer(from, kSourceArea, source.data(), &colourMap);
      FullFramePixelBuffer destinationBuffer(to, kDestinationArea, destination.data(), &colourMap);
      combinePixels(destinationBuffer, kDestinationRect, sourceBuffer, kSourceRect.tl, op);
      ASSERT_TRUE(destination == expected) << from.str() << " into " << to.str();
    }
  }
}

TEST(CombinePixels, EveryPairOfFormats) {
  compare(OverOp());
  compare(OddOp());
}

}  // namespace
}  // namespace rfb
