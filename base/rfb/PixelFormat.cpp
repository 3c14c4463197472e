#include "rfb/PixelFormat.h"

#include "plat/Exception.h"
#include "rdr/InStream.h"
#include "rdr/OutStream.h"

namespace rfb {

namespace {

struct Channel {
  char name;
  int max;
  int shift;
};

// The compact form, for channels given from the most significant down: its name and the width of
// each channel in bits. Empty when they do not fill the pixel from its depth to bit 0 in that
// order.
std::string packedText(std::initializer_list<Channel> channels, int depth) {
  std::string text = " ";
  for (const Channel& channel : channels) text += channel.name;
  int top = depth;
  for (const Channel& channel : channels) {
    const int width = top - channel.shift;
    if (width < 1 || width > 16 || channel.max != (1 << width) - 1) return "";
    text += std::to_string(width);
    top = channel.shift;
  }
  return top == 0 ? text : "";
}

// The bits of a channel in a pixel; 0 if it does not consist of whole bits or leaves the pixel.
uint32_t channelMask(int max, int shift, int bpp) {
  const uint32_t m = static_cast<uint32_t>(max);
  if (m == 0 || (m & (m + 1)) != 0 || shift >= bpp) return 0;
  const uint64_t mask = uint64_t{m} << shift;
  return (mask >> bpp) != 0 ? 0 : static_cast<uint32_t>(mask);
}

}  // namespace

PixelFormat::PixelFormat(int bitsPerPixel, int significantBits, bool isBigEndian, bool isTrueColour,
                         int maxRed, int maxGreen, int maxBlue, int shiftRed, int shiftGreen,
                         int shiftBlue, int shiftAlpha, int maxAlpha)
    : bpp(static_cast<uint8_t>(bitsPerPixel)),
      depth(static_cast<uint8_t>(significantBits)),
      bigEndian(isBigEndian),
      trueColour(isTrueColour),
      redMax(static_cast<uint16_t>(maxRed)),
      greenMax(static_cast<uint16_t>(maxGreen)),
      blueMax(static_cast<uint16_t>(maxBlue)),
      alphaMax(static_cast<uint16_t>(maxAlpha)),
      redShift(static_cast<uint8_t>(shiftRed)),
      greenShift(static_cast<uint8_t>(shiftGreen)),
      blueShift(static_cast<uint8_t>(shiftBlue)),
      alphaShift(static_cast<uint8_t>(shiftAlpha)) {}

bool PixelFormat::equals(const PixelFormat& other) const {
  if (bpp != other.bpp || trueColour != other.trueColour) return false;
  if (bpp != 8 && bigEndian != other.bigEndian) return false;
  if (!trueColour) return true;
  return redMax == other.redMax && greenMax == other.greenMax && blueMax == other.blueMax &&
         alphaMax == other.alphaMax && redShift == other.redShift &&
         greenShift == other.greenShift && blueShift == other.blueShift &&
         alphaShift == other.alphaShift;
}

bool PixelFormat::isValid() const {
  if (bpp != 8 && bpp != 16 && bpp != 24 && bpp != 32) return false;
  if (depth == 0 || depth > bpp) return false;
  if (!trueColour) return depth <= 8;
  const uint32_t red = channelMask(redMax, redShift, bpp);
  const uint32_t green = channelMask(greenMax, greenShift, bpp);
  const uint32_t blue = channelMask(blueMax, blueShift, bpp);
  const uint32_t alpha = channelMask(alphaMax, alphaShift, bpp);
  if (!red || !green || !blue || (alphaMax != 0 && !alpha)) return false;
  return !(red & green) && !((red | green) & blue) && !((red | green | blue) & alpha);
}

std::optional<PixelFormat::ByteChannels> PixelFormat::byteChannels() const {
  if (bpp == 8 || !trueColour) return std::nullopt;
  if (redMax > 255 || greenMax > 255 || blueMax > 255 || alphaMax > 255) return std::nullopt;
  if ((redShift | greenShift | blueShift | alphaShift) % 8 != 0) return std::nullopt;
  const auto byteOf = [this](int shift) { return (bpp - 8 - shift) / 8; };
  return ByteChannels{byteOf(redShift), byteOf(greenShift), byteOf(blueShift),
                      alphaMax ? byteOf(alphaShift) : -1};
}

bool PixelFormat::is888() const {
  return trueColour && redMax == 255 && greenMax == 255 && blueMax == 255 &&
         (alphaMax == 0 || alphaMax == 255);
}

std::string PixelFormat::str() const {
  std::string text = plat::format("depth %d (%d bpp)", depth, bpp);
  if (bpp != 8) text += plat::format(" %s-endian", bigEndian ? "big" : "little");
  if (!trueColour) return text + " colour-map";

  const Channel r{'r', redMax, redShift}, g{'g', greenMax, greenShift};
  const Channel b{'b', blueMax, blueShift}, a{'a', alphaMax, alphaShift};
  const bool hasAlpha = alphaMax != 0;
  for (const std::string& packed :
       {hasAlpha ? "" : packedText({r, g, b}, depth), packedText({r, g, b, a}, depth),
        packedText({a, r, g, b}, depth), hasAlpha ? "" : packedText({b, g, r}, depth),
        packedText({b, g, r, a}, depth), packedText({a, b, g, r}, depth)}) {
    if (!packed.empty()) return text + packed;
  }

  text += plat::format(" rgb max %d,%d,%d shift %d,%d,%d", redMax, greenMax, blueMax, redShift,
                       greenShift, blueShift);
  if (hasAlpha) text += plat::format(" alpha max %d shift %d", alphaMax, alphaShift);
  return text;
}

void PixelFormat::write(rdr::OutStream& os) const {
  os.writeU8(bpp);
  os.writeU8(depth);
  os.writeU8(bigEndian ? 1 : 0);
  os.writeU8(trueColour ? 1 : 0);
  os.writeU16(redMax);
  os.writeU16(greenMax);
  os.writeU16(blueMax);
  os.writeU16(alphaMax);
  os.writeU8(redShift);
  os.writeU8(greenShift);
  os.writeU8(blueShift);
  os.writeU8(alphaShift);
}

PixelFormat PixelFormat::read(rdr::InStream& is) {
  PixelFormat pf;
  pf.bpp = is.readU8();
  pf.depth = is.readU8();
  pf.bigEndian = is.readU8() != 0;
  pf.trueColour = is.readU8() != 0;
  pf.redMax = is.readU16();
  pf.greenMax = is.readU16();
  pf.blueMax = is.readU16();
  pf.alphaMax = is.readU16();
  pf.redShift = is.readU8();
  pf.greenShift = is.readU8();
  pf.blueShift = is.readU8();
  pf.alphaShift = is.readU8();
  if (!pf.isValid()) throw plat::Exception("Invalid pixel format: %s", pf.str().c_str());
  return pf;
}

}  // namespace rfb
