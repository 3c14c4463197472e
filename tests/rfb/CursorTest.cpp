#include <gtest/gtest.h>

#include "rfb/ArrowCursor.h"
#include "rfb/CursorWithAlpha.h"
#include "rfb/Pixels.h"

namespace rfb {
namespace {

const PixelFormat kRgb32(32, 24, false, true, 255, 255, 255, 16, 8, 0);

using support::pixels;
using Values = std::vector<uint32_t>;

TEST(CursorWithAlpha, DrawsOver) {
  CursorWithAlpha cursor(Cursor::alphaFormat(), 3, 2, Point(1, 1));
  EXPECT_EQ(cursor.getRect(), Rect(-1, -1, 2, 1));
  const uint32_t image[] = {0, 0xff112233, 0x80800000, 0x40000040, 0xffffffff, 0x01000000};
  cursor.setArgb(image);
  ManagedPixelBuffer screen(kRgb32, Rect(100, 200, 105, 203));
  for (int y = 200; y < 203; ++y) {
    for (int x = 100; x < 105; ++x) screen.setPixel(x, y, 0x6480c8);
  }
  cursor.copy()->draw(screen, Point(102, 201));
  // (200 * 127 + 127) / 255 = 100, (100 * 191 + 127) / 255 = 75, and so on.
  EXPECT_EQ(pixels(screen), (Values{0x6480c8, 0x6480c8, 0x112233, 0xb24064, 0x6480c8,  //
                                    0x6480c8, 0x4b60d6, 0xffffff, 0x647fc7, 0x6480c8,  //
                                    0x6480c8, 0x6480c8, 0x6480c8, 0x6480c8, 0x6480c8}));
}

TEST(CursorWithMask, DrawsWhereTheMaskSays) {
  CursorWithMask cursor(kRgb32, 10, 2, Point(0, 0));
  for (int x = 0; x < 10; ++x) {
    cursor.setPixel(x, 0, static_cast<uint32_t>(x + 1));
    cursor.setPixel(x, 1, static_cast<uint32_t>(x + 11));
  }
  cursor.setMaskBit(1, 0, true);
  cursor.setMaskBit(9, 1, true);
  cursor.setMaskBit(8, 1, true);
  ManagedPixelBuffer screen(kRgb32, 1, 1);
  screen.setSize(4, 2);
  cursor.draw(screen, Point(0, 0));
  EXPECT_EQ(pixels(screen), (Values{0, 2, 0, 0, 0, 0, 0, 0}));
  cursor.copy()->draw(screen, Point(-6, -1));
  EXPECT_EQ(pixels(screen), (Values{0, 2, 19, 20, 0, 0, 0, 0}));
}

TEST(Cursor, Converts) {
  CursorWithAlpha cursor(Cursor::alphaFormat(), 4, 1, Point(1, 0));
  const unsigned long image[] = {0x7f7f7f7f, 0x80402000, ~0ul, 0};  // as the X library has them
  cursor.setArgb(image);
  auto mask = cursor.toMask(kRgb32);
  EXPECT_EQ(mask->hotspot(), Point(1, 0));
  EXPECT_EQ(mask->mask()[0], 0x60);
  EXPECT_EQ(mask->toMask(kRgb32)->mask()[0], 0x60);
  EXPECT_EQ(pixels(*mask), (Values{0, 0x804000, 0xffffff, 0}));
  EXPECT_EQ(pixels(*mask->toAlpha(Cursor::alphaFormat())), (Values{0, 0xff804000, 0xffffffff, 0}));
  cursor.setThreshold(127);
  EXPECT_EQ(cursor.toMask(kRgb32)->mask()[0], 0xe0);
}

TEST(ArrowCursor, IsTwelveByTwentyOne) {
  ArrowCursor arrow(kRgb32);
  EXPECT_EQ(arrow.getRect(), Rect(0, 0, 12, 21));
  EXPECT_EQ(arrow.getPixel(0, 0), 0xffffffu);
  support::forEachPixel(arrow, [&](int x, int y) {
    // The black body never meets the outside.
    if (arrow.getPixel(x, y) != 0 || !arrow.maskBit(x, y)) return;
    EXPECT_TRUE(arrow.maskBit(x - 1, y) && arrow.maskBit(x + 1, y)) << x << "," << y;
  });
}

}  // namespace
}  // namespace rfb
