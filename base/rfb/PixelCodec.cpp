#include "rfb/PixelCodec.h"

#include <algorithm>
#include <numeric>

#include "rfb/PixelAccess.h"

namespace rfb {

namespace {

// Colour-map formats have at most 8 significant bits.
constexpr int kMaxEntries = 256;

}  // namespace

PixelCodec::Channel::Channel(uint32_t channelMax, int channelShift)
    // A shift beyond the pixel would be undefined; such a channel is always 0.
    : max(channelShift < 32 ? channelMax : 0), shift(channelShift < 32 ? channelShift : 0) {
  if (max == 255) std::iota(scale.begin(), scale.end(), uint8_t{0});
  if (max >= 255) return;
  for (uint32_t v = 0; v <= max; ++v) {
    scale[v] = max == 0 ? uint8_t{0} : static_cast<uint8_t>((v * 255 + max / 2) / max);
  }
}

PixelCodec::PixelCodec(const PixelFormat& format, const ColourMap* colourMap)
    : colourMap_(colourMap),
      mapped_(!format.trueColour),
      swapped_(isSwapped(format)),
      direct_(format.is888()),
      opaque_(format.alphaMax == 0 ? 255 : 0),
      red_(format.redMax, format.redShift),
      green_(format.greenMax, format.greenShift),
      blue_(format.blueMax, format.blueShift),
      alpha_(format.alphaMax, format.alphaShift) {
  if (!mapped_ || !colourMap) return;
  const int entries = std::min(colourMap->size(), kMaxEntries);
  for (int i = 0; i < entries; ++i) {
    int r, g, b;
    colourMap->lookup(i, &r, &g, &b);
    entries_.push_back(
        {static_cast<uint8_t>(r), static_cast<uint8_t>(g), static_cast<uint8_t>(b), 255});
  }
}

Colour PixelCodec::lookup(uint32_t index) const {
  return index < entries_.size() ? entries_[index] : Colour();
}

uint32_t PixelCodec::nearest(const Colour& colour) const {
  if (!colourMap_) return 0;
  if (!hasLast_ || colour != lastColour_) {
    lastColour_ = colour;
    lastNearest_ =
        static_cast<uint32_t>(colourMap_->nearest(colour.red, colour.green, colour.blue));
    hasLast_ = true;
  }
  return lastNearest_;
}

}  // namespace rfb
