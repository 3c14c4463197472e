#include <gtest/gtest.h>

#include <new>
#include <numeric>
#include <vector>

#include "rfb/ManagedPixelBuffer.h"
#include "rfb/Pixels.h"
#include "support/ThrowingAsserts.h"

namespace rfb {
namespace {

const PixelFormat kRgb32(32, 24, false, true, 255, 255, 255, 16, 8, 0);

TEST(PixelBuffer, GivesPixelsInside) {
  // 10 x 8 pixels of one byte at 100,50, in rows of 16 bytes; each byte is its offset.
  std::vector<uint8_t> memory(16 * 8);
  std::iota(memory.begin(), memory.end(), uint8_t{0});
  FullFramePixelBuffer buffer(PixelFormat(), Rect(100, 50, 110, 58), memory.data(), nullptr, 16);
  int stride = 0;
  EXPECT_EQ(buffer.getPixelsRW(Rect(100, 50, 101, 51), &stride), memory.data());
  EXPECT_EQ(stride, 16);
  EXPECT_EQ(buffer.getPixelsR(Rect(103, 52, 110, 58), nullptr), memory.data() + 2 * 16 + 3);
  EXPECT_EQ(buffer.getPixelsRW(Rect(500, 500, 400, 600), nullptr), nullptr) << "empty";
  EXPECT_EQ(
      assertionOf([&] { buffer.getPixelsRW(Rect(99, 50, 101, 51), nullptr); }),
      "Assertion failed: rect.encloses(r) (base/rfb/FullFramePixelBuffer): getPixelsRW out of "
      "bounds: 99,50 to 101,51 outside 100,50 to 110,58");

  std::vector<uint8_t> image(8, 0xee);
  buffer.getImage(image.data(), Rect(7, 7, 7, 9));
  buffer.getImage(image.data(), Rect(101, 51, 104, 53), 5);
  EXPECT_EQ(image, (std::vector<uint8_t>{17, 18, 19, 0xee, 0xee, 33, 34, 35}));

  FullFramePixelBuffer view(buffer, Rect(105, 55, 200, 200));
  EXPECT_EQ(view.getRect(), Rect(105, 55, 110, 58));
  view.setPixel(109, 57, 200);
  EXPECT_EQ(buffer.getPixel(109, 57), 200u);
  EXPECT_TRUE(FullFramePixelBuffer(buffer, Rect(0, 0, 5, 5)).getRect().isEmpty());
}

TEST(PixelBuffer, PixelsOfThreeBytesAreLittleEndian) {
  std::vector<uint8_t> memory(6);
  FullFramePixelBuffer buffer(PixelFormat(24, 24, true, true, 255, 255, 255, 16, 8, 0),
                              Rect(0, 0, 2, 1), memory.data());
  buffer.setPixel(1, 0, 0x1a5b3c4d);
  EXPECT_EQ(memory, (std::vector<uint8_t>{0, 0, 0, 0x4d, 0x3c, 0x5b}));
  EXPECT_EQ(buffer.getPixel(1, 0), 0x5b3c4du);
}

// Numbers the pixels from 1 on, row by row.
void number(WritablePixelBuffer& buffer) {
  uint32_t value = 1;
  support::forEachPixel(buffer, [&](int x, int y) { buffer.setPixel(x, y, value++); });
}

using support::pixels;
using Values = std::vector<uint32_t>;

TEST(ManagedPixelBuffer, ResizingZeroesUnlessPreserving) {
  ManagedPixelBuffer buffer(kRgb32, Rect(-2, 5, 1, 7));
  number(buffer);
  buffer.setSize(3, 2);
  EXPECT_EQ(pixels(buffer), (Values{1, 2, 3, 4, 5, 6})) << "nothing has changed";
  uint8_t* const block = buffer.getPixelsRW(buffer.getRect(), nullptr);
  buffer.setSize(2, 2);
  EXPECT_EQ(buffer.getRect(), Rect(-2, 5, 0, 7));
  EXPECT_EQ(buffer.getPixelsRW(buffer.getRect(), nullptr), block);
  EXPECT_EQ(std::accumulate(block, block + 24, 0), 0) << "all of the larger block";

  buffer.setPreserveOnResize(true);
  number(buffer);
  buffer.setSize(3, 2);
  EXPECT_EQ(pixels(buffer), (Values{1, 2, 0, 3, 4, 0}));
}

TEST(ManagedPixelBuffer, SizeLimits) {
  EXPECT_EQ(assertionOf([] { ManagedPixelBuffer(PixelFormat(), Rect(0, 0, 32768, 1)); }),
            "Assertion failed: Rect(RgnRect(rect)) == rect (base/rfb/ManagedPixelBuffer)");
  // More bytes than a block may have: nothing changes.
  ManagedPixelBuffer buffer(kRgb32, Rect(-32768, -32768, -32767, -32767));
  buffer.setPixel(-32768, -32768, 7);
  EXPECT_THROW(buffer.setSize(65535, 65535), std::bad_alloc);
  EXPECT_EQ(pixels(buffer), Values{7});
}

}  // namespace
}  // namespace rfb
