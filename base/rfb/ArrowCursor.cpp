#include "rfb/ArrowCursor.h"

#include "rfb/PixelAccess.h"
#include "rfb/PixelCodec.h"

namespace rfb {

namespace {

constexpr int kArrowWidth = 12;
constexpr int kArrowHeight = 21;

// 'o' the edge, '#' the body, blank is outside.
constexpr char kArrow[kArrowHeight][kArrowWidth + 1] = {
    "o           ",  //
    "oo          ",  //
    "o#o         ",  //
    "o##o        ",  //
    "o###o       ",  //
    "o####o      ",  //
    "o#####o     ",  //
    "o######o    ",  //
    "o#######o   ",  //
    "o########o  ",  //
    "o#########o ",  //
    "o##########o",  //
    "o######ooooo",  //
    "o###o##o    ",  //
    "o##oo##o    ",  //
    "o#o  o##o   ",  //
    "oo   o##o   ",  //
    "o     o##o  ",  //
    "      o##o  ",  //
    "       oo   ",  //
    "            ",  //
};

}  // namespace

ArrowCursor::ArrowCursor(const PixelFormat& format, ColourMap* colourMap)
    : CursorWithMask(format, kArrowWidth, kArrowHeight, Point(0, 0), colourMap) {
  const PixelCodec codec(format, colourMap);
  const int bytes = format.bytesPerPixel();
  const auto value = [&](const Colour& colour) {
    const uint32_t v = codec.encode(colour);
    return codec.swapped() ? swapPixel(v, bytes) : v;
  };
  const uint32_t edge = value({255, 255, 255, 255});
  const uint32_t body = value({0, 0, 0, 255});
  for (int y = 0; y < kArrowHeight; ++y) {
    for (int x = 0; x < kArrowWidth; ++x) {
      if (kArrow[y][x] == ' ') continue;
      setPixel(x, y, kArrow[y][x] == 'o' ? edge : body);
      setMaskBit(x, y, true);
    }
  }
}

}  // namespace rfb
