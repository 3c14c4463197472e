#include "rfb/PixelFormat.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "rdr/MemInStream.h"
#include "rdr/MemOutStream.h"

namespace rfb {
namespace {

// max and shift in the order red, green, blue, alpha.
PixelFormat trueColour(int bpp, int depth, std::vector<int> max, std::vector<int> shift,
                       bool bigEndian = false) {
  return PixelFormat(bpp, depth, bigEndian, true, max[0], max[1], max[2], shift[0], shift[1],
                     shift[2], shift[3], max[3]);
}

const std::vector<int> kAll8 = {255, 255, 255, 255};
const std::vector<int> kRgb8 = {255, 255, 255, 0};
const PixelFormat kRgb = trueColour(32, 24, kRgb8, {16, 8, 0, 0});

TEST(PixelFormat, TextForm) {
  const std::string le32 = "depth 32 (32 bpp) little-endian ";
  const struct {
    PixelFormat format;
    std::string text;
  } cases[] = {
      {PixelFormat(), "depth 8 (8 bpp) bgr233"},
      {kRgb, "depth 24 (32 bpp) little-endian rgb888"},
      {trueColour(32, 24, kRgb8, {0, 8, 16, 0}, true), "depth 24 (32 bpp) big-endian bgr888"},
      {trueColour(32, 32, kAll8, {16, 8, 0, 24}), le32 + "argb8888"},
      {trueColour(16, 16, {15, 31, 15, 7}, {9, 4, 0, 13}),
       "depth 16 (16 bpp) little-endian argb3454"},
      // A gap above the channels, for the depth says that they are wider, or another order.
      {trueColour(32, 32, kRgb8, {16, 8, 0, 0}), le32 + "rgb max 255,255,255 shift 16,8,0"},
      {trueColour(32, 32, kAll8, {8, 16, 0, 24}),
       le32 + "rgb max 255,255,255 shift 8,16,0 alpha max 255 shift 24"},
      {PixelFormat(16, 8, true, false), "depth 8 (16 bpp) big-endian colour-map"}};
  for (const auto& c : cases) EXPECT_EQ(c.format.str(), c.text);
}

TEST(PixelFormat, EqualityAndValidity) {
  EXPECT_EQ(kRgb, trueColour(32, 32, kRgb8, {16, 8, 0, 0})) << "depth is not compared";
  EXPECT_NE(kRgb, trueColour(32, 24, kRgb8, {16, 8, 0, 0}, true));
  EXPECT_NE(kRgb, trueColour(32, 24, kAll8, {16, 8, 0, 0}));
  EXPECT_EQ(PixelFormat(8, 8, true, false), PixelFormat(8, 8, false, false, 7, 7, 3, 0, 3, 6));

  for (const PixelFormat& format : {PixelFormat(), kRgb, trueColour(32, 32, kAll8, {16, 8, 0, 24}),
                                    PixelFormat(32, 8, false, false)}) {
    EXPECT_TRUE(format.isValid()) << format.str();
  }
  for (const PixelFormat& format :
       {PixelFormat(32, 9, false, false), trueColour(24, 32, kRgb8, {16, 8, 0, 0}),
        trueColour(12, 12, {15, 15, 15, 0}, {8, 4, 0, 0}),
        trueColour(32, 24, {255, 254, 255, 0}, {16, 8, 0, 0}),  // not whole bits
        trueColour(32, 24, kRgb8, {25, 8, 0, 0}),               // leaves the pixel
        trueColour(32, 24, kRgb8, {16, 8, 1, 0}),               // overlap
        trueColour(32, 32, kAll8, {16, 8, 0, 23})}) {
    EXPECT_FALSE(format.isValid()) << format.str();
  }
}

TEST(PixelFormat, EightBitsAChannel) {
  EXPECT_TRUE(kRgb.is888());
  EXPECT_TRUE(trueColour(32, 32, kAll8, {16, 8, 0, 24}).is888());
  for (size_t narrow = 0; narrow < 4; ++narrow) {
    std::vector<int> max = kAll8;
    max[narrow] = 127;
    EXPECT_FALSE(trueColour(32, 32, max, {16, 8, 0, 24}).is888()) << narrow;
    max[narrow] = 511;
    EXPECT_FALSE(trueColour(32, 32, max, {16, 8, 0, 24}).byteChannels()) << narrow;
  }
  EXPECT_FALSE(PixelFormat(32, 24, false, false).is888());
}

TEST(PixelFormat, OnTheWire) {
  rdr::MemOutStream out;
  const PixelFormat format = trueColour(16, 15, {15, 31, 7, 3}, {9, 4, 1, 13}, true);
  format.write(out);
  const std::vector<uint8_t> bytes(out.data(), out.data() + out.size());
  EXPECT_EQ(bytes, (std::vector<uint8_t>{16, 15, 1, 1, 0, 15, 0, 31, 0, 7, 0, 3, 9, 4, 1, 13}));
  rdr::MemInStream in(out.data(), out.size());
  EXPECT_EQ(PixelFormat::read(in).str(), format.str());
}

TEST(PixelFormat, ByteChannels) {
  using Channels = PixelFormat::ByteChannels;
  EXPECT_EQ(trueColour(32, 32, kAll8, {16, 8, 0, 24}).byteChannels(), (Channels{1, 2, 3, 0}));
  EXPECT_EQ(trueColour(24, 24, kRgb8, {16, 8, 0, 0}).byteChannels(), (Channels{0, 1, 2, -1}));
  EXPECT_FALSE(trueColour(32, 24, kRgb8, {16, 8, 1, 0}).byteChannels());
}

}  // namespace
}  // namespace rfb
