#include "rfb/ArrowCursor.h"

#include "rfb/PixelAccess.h"
#include "rfb/PixelCodec.h"

namespace rfb {

namespace {

constexpr int arrowWidth = 12;
constexpr int arrowHeight = 21;

// 'o' the edge, '#' the body, blank is outside.
constexpr char arrow[arrowHeight][arrowWidth + 1] = {
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
    : CursorWithMask(format, arrowWidth, arrowHeight, Point(0, 0), colourMap) {
  const PixelCodec codec(format, colourMap);
  const int bytes = format.bytesPerPixel();
  const auto value = [&](const Colour& colour) {
    const uint32_t v = codec.encode(colour);
    return codec.swapped() ? swapPixel(v, bytes) : v;
  };
  const uint32_t edge = value({255, 255, 255, 255});
  const uint32_t body = value({0, 0, 0, 255});
  for (int y = 0; y < arrowHeight; y++) {
    for (int x = 0; x < arrowWidth; x++) {
      if (arrow[y][x] == ' ') continue;
      setPixel(x, y, arrow[y][x] == 'o' ? edge : body);
      setMaskBit(x, y, true);
    }
  }
}

}  // namespace rfb
