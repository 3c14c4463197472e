#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace rdr {
class InStream;
class OutStream;
}  // namespace rdr

namespace rfb {

// How the pixels of an image lie in memory: RFC 6143's PIXEL_FORMAT with an alpha channel added.
class PixelFormat {
 public:
  // Byte positions of the channels inside a pixel written most significant byte first; alpha is -1
  // for a format without alpha.
  struct ByteChannels {
    int red;
    int green;
    int blue;
    int alpha;

    friend bool operator==(const ByteChannels&, const ByteChannels&) = default;
  };

  // 8 bits per pixel, true colour: bgr233.
  PixelFormat() = default;
  PixelFormat(int bitsPerPixel, int significantBits, bool isBigEndian, bool isTrueColour,
              int maxRed = 0, int maxGreen = 0, int maxBlue = 0, int shiftRed = 0,
              int shiftGreen = 0, int shiftBlue = 0, int shiftAlpha = 0, int maxAlpha = 0);

  // Depth is not compared; neither is the byte order of 8-bit pixels, nor what a colour-map format
  // holds in its channel fields.
  friend bool operator==(const PixelFormat& a, const PixelFormat& b) { return a.equals(b); }

  // Whether pixels of this format can be read and written: a known width, a depth within it (at
  // most 8 for a colour map), and channels of whole bits that fit the pixel without overlap.
  bool isValid() const;

  int bytesPerPixel() const { return bpp / 8; }

  // Null unless every channel of this true-colour format lies in a byte of its own.
  std::optional<ByteChannels> byteChannels() const;

  // Whether red, green and blue (and alpha, if there is one) are 8 bits each.
  bool is888() const;

  // For people and logs, for example "depth 24 (32 bpp) little-endian rgb888".
  std::string str() const;

  // The 16 bytes that stand for a pixel format in messages: the fields in their order, big-endian.
  void write(rdr::OutStream& os) const;
  // Throws plat::Exception when the format read is not valid; all 16 bytes have been read then.
  static PixelFormat read(rdr::InStream& is);

  uint8_t bpp = 8;
  uint8_t depth = 8;
  bool bigEndian = false;
  bool trueColour = true;
  uint16_t redMax = 7;
  uint16_t greenMax = 7;
  uint16_t blueMax = 3;
  uint16_t alphaMax = 0;
  uint8_t redShift = 0;
  uint8_t greenShift = 3;
  uint8_t blueShift = 6;
  uint8_t alphaShift = 0;

 private:
  bool equals(const PixelFormat& other) const;
};

static_assert(sizeof(PixelFormat) == 16);

}  // namespace rfb
