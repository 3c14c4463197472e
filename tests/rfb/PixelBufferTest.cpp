#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <new>
#include <numeric>
#include <vector>

#include "rfb/ManagedPixelBuffer.h"
#include "rfb/Pixels.h"
#include "rfb/Region.h"
#include "support/ThrowingAsserts.h"

namespace rfb {
namespace {

const PixelFormat rgb32(32, 24, false, true, 255, 255, 255, 16, 8, 0);
const PixelFormat rgb24(24, 24, false, true, 255, 255, 255, 16, 8, 0);
const PixelFormat rgb16(16, 16, false, true, 31, 63, 31, 11, 5, 0);

// 10 x 8 pixels of one byte at 100,50, in rows of 16 bytes; each byte is its offset.
class OffsetBuffer : public ::testing::Test {
 protected:
  OffsetBuffer() : memory_(16 * 8) { std::iota(memory_.begin(), memory_.end(), uint8_t{0}); }

  std::vector<uint8_t> memory_;
  FullFramePixelBuffer buffer_{PixelFormat(), Rect(100, 50, 110, 58), memory_.data(), nullptr, 16};
};

TEST_F(OffsetBuffer, GivesPixelsInside) {
  int stride = 0;
  EXPECT_EQ(buffer_.getPixelsRW(Rect(100, 50, 101, 51), &stride), memory_.data());
  EXPECT_EQ(stride, 16);
  EXPECT_EQ(buffer_.getPixelsR(Rect(103, 52, 110, 58), nullptr), memory_.data() + 2 * 16 + 3);
  EXPECT_EQ(buffer_.getPixel(109, 57), 7u * 16 + 9);
}

TEST_F(OffsetBuffer, EmptyRectanglesAreNotChecked) {
  int stride = 0;
  EXPECT_EQ(buffer_.getPixelsRW(Rect(500, 500, 400, 600), &stride), nullptr);
  EXPECT_EQ(stride, 16);
  uint8_t untouched = 99;
  buffer_.getImage(&untouched, Rect(7, 7, 7, 9));
  EXPECT_EQ(untouched, 99);

  std::vector<uint8_t> image(8, 0xee);
  buffer_.getImage(image.data(), Rect(101, 51, 104, 53), 5);
  EXPECT_EQ(image, (std::vector<uint8_t>{17, 18, 19, 0xee, 0xee, 33, 34, 35}));
}

TEST_F(OffsetBuffer, OutOfBoundsIsFatal) {
  EXPECT_EQ(
      assertionOf([&] { buffer_.getPixelsRW(Rect(99, 50, 101, 51), nullptr); }),
      "Assertion failed: rect.encloses(r) (base/rfb/FullFramePixelBuffer): getPixelsRW out of "
      "bounds: 99,50 to 101,51 outside 100,50 to 110,58");
  EXPECT_NE(assertionOf([&] { buffer_.setPixel(100, 58, 0); }), "");
}

TEST_F(OffsetBuffer, ViewsAreClipped) {
  FullFramePixelBuffer view(buffer_, Rect(105, 55, 200, 200));
  EXPECT_EQ(view.getRect(), Rect(105, 55, 110, 58));
  EXPECT_EQ(view.getStride(), 16);
  EXPECT_EQ(view.getPixel(105, 55), 5u * 16 + 5);
  view.setPixel(109, 57, 200);
  EXPECT_EQ(buffer_.getPixel(109, 57), 200u);

  FullFramePixelBuffer outside(buffer_, Rect(0, 0, 5, 5));
  EXPECT_TRUE(outside.getRect().isEmpty());
}

TEST(PixelBuffer, SinglePixels) {
  const struct {
    PixelFormat format;
    uint32_t value;
    std::vector<uint8_t> littleEndianBytes;
  } cases[] = {
      {PixelFormat(), 0x1a5, {0xa5}},
      {rgb16, 0x1a5b, {0x5b, 0x1a}},
      {rgb24, 0x1a5b3c, {0x3c, 0x5b, 0x1a}},
      {PixelFormat(24, 24, true, true, 255, 255, 255, 16, 8, 0), 0x1a5b3c, {0x3c, 0x5b, 0x1a}},
      {rgb32, 0x1a5b3c4d, {0x4d, 0x3c, 0x5b, 0x1a}},
      {PixelFormat(12, 12, false, true, 15, 15, 15, 8, 4, 0), 0xfff, {}},
  };
  for (const auto& c : cases) {
    std::vector<uint8_t> memory(8, 0);
    FullFramePixelBuffer buffer(c.format, Rect(0, 0, 2, 1), memory.data());
    buffer.setPixel(1, 0, c.value);
    std::vector<uint8_t> expected(8, 0);
    const int bytes = c.format.bytesPerPixel();
    std::copy(c.littleEndianBytes.begin(), c.littleEndianBytes.end(), expected.begin() + bytes);
    EXPECT_EQ(memory, expected) << c.format.str();
    EXPECT_EQ(buffer.getPixel(1, 0), c.littleEndianBytes.empty() ? 0
                                     : c.format.bpp == 8         ? c.value & 0xff
                                                                 : c.value);
  }
}

// Numbers the pixels from 1 on, row by row.
void number(WritablePixelBuffer& buffer) {
  uint32_t value = 1;
  test::forEachPixel(buffer, [&](int x, int y) { buffer.setPixel(x, y, value++); });
}

using test::pixels;
using Values = std::vector<uint32_t>;

TEST(ManagedPixelBuffer, ResizingZeroesUnlessPreserving) {
  ManagedPixelBuffer buffer(rgb32, Rect(-2, 5, 1, 7));
  number(buffer);
  buffer.setSize(3, 2);
  EXPECT_EQ(pixels(buffer), (Values{1, 2, 3, 4, 5, 6}));
  buffer.setSize(2, 3);
  EXPECT_EQ(buffer.getRect(), Rect(-2, 5, 0, 8));
  EXPECT_EQ(pixels(buffer), Values(6, 0));

  buffer.setPreserveOnResize(true);
  number(buffer);
  buffer.setSize(3, 2);
  EXPECT_EQ(pixels(buffer), (Values{1, 2, 0, 3, 4, 0}));
  buffer.setSize(1, 4);
  EXPECT_EQ(pixels(buffer), (Values{1, 3, 0, 0}));
  buffer.setSize(0, 4);
  EXPECT_EQ(buffer.capacity(), 0);
  buffer.setSize(1, 1);
  EXPECT_EQ(pixels(buffer), Values{0});
}

TEST(ManagedPixelBuffer, KeepsALargerBlockAndZeroesAllOfIt) {
  ManagedPixelBuffer buffer(rgb32, 4, 4);
  number(buffer);
  uint8_t* const block = buffer.getPixelsRW(buffer.getRect(), nullptr);
  buffer.setSize(2, 2);
  EXPECT_EQ(buffer.capacity(), 64);
  EXPECT_EQ(buffer.getPixelsRW(buffer.getRect(), nullptr), block);
  EXPECT_EQ(std::accumulate(block, block + 64, 0), 0);
  EXPECT_EQ(buffer.getStride(), 2);
}

TEST(ManagedPixelBuffer, SizeLimits) {
  EXPECT_EQ(assertionOf([] { ManagedPixelBuffer(PixelFormat(), Rect(0, 0, 32768, 1)); }),
            "Assertion failed: Rect(RgnRect(rect)) == rect (base/rfb/ManagedPixelBuffer)");
  EXPECT_NE(assertionOf([] { ManagedPixelBuffer(PixelFormat(), Rect(-32769, 0, 0, 1)); }), "");
  ManagedPixelBuffer widest(PixelFormat(), Rect(-32768, -1, 32767, 0));
  EXPECT_EQ(widest.capacity(), 65535);

  // More bytes than a block may have: nothing changes.
  ManagedPixelBuffer buffer(rgb32, Rect(-32768, -32768, -32767, -32767));
  buffer.setPixel(-32768, -32768, 7);
  EXPECT_THROW(buffer.setSize(65535, 65535), std::bad_alloc);
  EXPECT_EQ(pixels(buffer), Values{7});
}

}  // namespace
}  // namespace rfb
