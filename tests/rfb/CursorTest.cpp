#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "rfb/ArrowCursor.h"
#include "rfb/CursorWithAlpha.h"
#include "rfb/Pixels.h"
#include "rfb/TestColourMap.h"

namespace rfb {
namespace {

const PixelFormat rgb32(32, 24, false, true, 255, 255, 255, 16, 8, 0);

using test::pixels;
using Values = std::vector<uint32_t>;

TEST(CursorWithAlpha, TakesWideValuesInByteOrder) {
  const unsigned long values[] = {0x80402010ul, ~0ul};  // as the X library has them
  CursorWithAlpha cursor(Cursor::alphaFormat(), 2, 1, Point(1, 0));
  cursor.setArgb(values);
  uint8_t bytes[8];
  cursor.getImage(bytes, cursor.getRect());
  EXPECT_EQ(std::vector<uint8_t>(bytes, bytes + 8),
            (std::vector<uint8_t>{0x10, 0x20, 0x40, 0x80, 255, 255, 255, 255}));
}

TEST(CursorWithAlpha, DrawsOver) {
  CursorWithAlpha cursor(Cursor::alphaFormat(), 3, 2, Point(1, 1));
  const uint32_t image[] = {0, 0xff112233, 0x80800000, 0x40000040, 0xffffffff, 0x01000000};
  cursor.setArgb(image);
  ManagedPixelBuffer screen(rgb32, Rect(100, 200, 105, 203));
  for (int y = 200; y < 203; y++)
    for (int x = 100; x < 105; x++) screen.setPixel(x, y, 0x6480c8);
  cursor.draw(screen, Point(102, 201));
  // (200 * 127 + 127) / 255 = 100, (100 * 191 + 127) / 255 = 75, and so on.
  EXPECT_EQ(pixels(screen), (Values{0x6480c8, 0x6480c8, 0x112233, 0xb24064, 0x6480c8,  //
                                    0x6480c8, 0x4b60d6, 0xffffff, 0x647fc7, 0x6480c8,  //
                                    0x6480c8, 0x6480c8, 0x6480c8, 0x6480c8, 0x6480c8}));
}

TEST(CursorWithMask, DrawsWhereTheMaskSays) {
  CursorWithMask cursor(rgb32, 10, 2, Point(0, 0));
  for (int x = 0; x < 10; x++) {
    cursor.setPixel(x, 0, static_cast<uint32_t>(x + 1));
    cursor.setPixel(x, 1, static_cast<uint32_t>(x + 11));
  }
  cursor.setMaskBit(1, 0, true);
  cursor.setMaskBit(9, 1, true);
  cursor.setMaskBit(8, 1, true);
  ManagedPixelBuffer screen(rgb32, 1, 1);
  screen.setSize(4, 2);
  cursor.draw(screen, Point(0, 0));
  EXPECT_EQ(pixels(screen), (Values{0, 2, 0, 0, 0, 0, 0, 0}));
  cursor.draw(screen, Point(-6, -1));
  EXPECT_EQ(pixels(screen), (Values{0, 2, 19, 20, 0, 0, 0, 0}));
}

TEST(Cursor, ConvertsToAMaskAtTheThreshold) {
  CursorWithAlpha cursor(Cursor::alphaFormat(), 4, 1, Point(1, 0));
  const uint32_t image[] = {0x7f7f7f7f, 0x80402000, 0xff123456, 0};
  cursor.setArgb(image);
  const auto mask = cursor.toMask(rgb32);
  EXPECT_EQ(mask->hotspot(), Point(1, 0));
  EXPECT_EQ(mask->mask()[0], 0x60);
  EXPECT_EQ(pixels(*mask), (Values{0, 0x804000, 0x123456, 0}));
  cursor.setThreshold(127);
  EXPECT_EQ(cursor.toMask(rgb32)->mask()[0], 0xe0);
}

TEST(Cursor, ConvertsToAlpha) {
  CursorWithMask cursor(PixelFormat(), 2, 1, Point(0, 0));
  cursor.setPixel(0, 0, 0x07);  // red
  cursor.setPixel(1, 0, 0x07);
  cursor.setMaskBit(1, 0, true);
  const auto alpha = cursor.toAlpha(Cursor::alphaFormat());
  EXPECT_EQ(pixels(*alpha), (Values{0, 0xffff0000}));

  const PixelFormat argb4444(16, 16, false, true, 15, 15, 15, 8, 4, 0, 12, 15);
  CursorWithAlpha full(Cursor::alphaFormat(), 1, 1, Point(0, 0));
  const uint32_t image[] = {0x80402010};
  full.setArgb(image);
  full.setThreshold(9);
  EXPECT_EQ(pixels(*full.toAlpha(argb4444)), Values{0x8421});
  EXPECT_EQ(full.toAlpha(argb4444)->threshold(), 9);
}

TEST(Cursor, Copies) {
  ArrowCursor arrow((PixelFormat()));
  const std::unique_ptr<Cursor> copy = arrow.copy();
  arrow.setPixel(0, 0, 0x42);
  ManagedPixelBuffer screen(PixelFormat(), 12, 21);
  copy->draw(screen, Point(0, 0));
  EXPECT_EQ(screen.getPixel(0, 0), 0xffu);
}

TEST(ArrowCursor, IsTwelveByTwentyOneInAnyFormat) {
  TestColourMap map({{0, 0, 0}, {255, 0, 0}, {250, 255, 255}});
  const PixelFormat rgb565(16, 16, true, true, 31, 63, 31, 11, 5, 0);
  const PixelFormat indexed(8, 8, false, false);
  const struct {
    PixelFormat format;
    uint32_t black, white;
  } cases[] = {
      {PixelFormat(), 0, 0xff}, {rgb565, 0, 0xffff}, {rgb32, 0, 0xffffff}, {indexed, 0, 2}};
  for (const auto& c : cases) {
    ArrowCursor arrow(c.format, &map);
    EXPECT_EQ(arrow.getRect(), Rect(0, 0, 12, 21));
    EXPECT_EQ(arrow.mask()[0], 0x80);  // the tip
    EXPECT_EQ(arrow.getPixel(0, 0), c.white);
    EXPECT_EQ(arrow.getPixel(1, 3), c.black);
    int inside = 0;
    test::forEachPixel(arrow, [&](int x, int y) {
      // Outside is zero, and the body never meets the outside.
      const uint32_t value = arrow.getPixel(x, y);
      if (!arrow.maskBit(x, y)) {
        EXPECT_EQ(value, 0u);
        return;
      }
      inside++;
      if (value == c.black) {
        EXPECT_TRUE(arrow.maskBit(x - 1, y) && arrow.maskBit(x + 1, y)) << x << "," << y;
      } else {
        EXPECT_EQ(value, c.white);
      }
    });
    EXPECT_GT(inside, 80);
  }
}

}  // namespace
}  // namespace rfb
