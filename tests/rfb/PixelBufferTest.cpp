#include <gtest/gtest.h>

#include <new>
#include <numeric>
#include <vector>

#include "rfb/ManagedPixelBuffer.h"
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
}

TEST(ManagedPixelBuffer, HandsOverItsBlock) {
  ManagedPixelBuffer buffer(kRgb32, Rect(5, 6, 7, 8));
  EXPECT_NE(buffer.releaseBuffer(), nullptr);
  EXPECT_EQ(buffer.getRect(), Rect(5, 6, 5, 6));
  EXPECT_EQ(buffer.capacity(), 0);
}

TEST(ManagedPixelBuffer, SizeLimits) {
  EXPECT_EQ(assertionOf([] { ManagedPixelBuffer(PixelFormat(), Rect(0, 0, 32768, 1)); }),
            "Assertion failed: Rect(RgnRect(rect)) == rect (base/rfb/ManagedPixelBuffer)");
  // More bytes than a block may have: nothing changes.
  ManagedPixelBuffer buffer(kRgb32, Rect(-32768, -32768, -32767, -32767));
  buffer.setPixel(-32768, -32768, 7);
  EXPECT_THROW(buffer.setSize(65535, 65535), std::bad_alloc);
  EXPECT_EQ(buffer.getPixel(-32768, -32768), 7u);
}

}  // namespace
}  // namespace rfb
