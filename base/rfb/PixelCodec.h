#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "rfb/Colour.h"
#include "rfb/ColourMap.h"
#include "rfb/PixelFormat.h"

namespace rfb {

// Turns pixel values of one format into colours and back, for loops over many pixels: whatever
// depends on the format alone is prepared once. The values are in the machine's byte order.
class PixelCodec {
 public:
  // The colour map is used by colour-map formats only, and may be null there (all is black then).
  PixelCodec(const PixelFormat& format, const ColourMap* colourMap);

  bool swapped() const { return swapped_; }

  Colour decode(uint32_t value) const {
    if (mapped_) return lookup(value);
    const uint32_t r = (value >> red_.shift) & red_.max;
    const uint32_t g = (value >> green_.shift) & green_.max;
    const uint32_t b = (value >> blue_.shift) & blue_.max;
    const uint32_t a = (value >> alpha_.shift) & alpha_.max;
    if (direct_) {
      return {static_cast<uint8_t>(r), static_cast<uint8_t>(g), static_cast<uint8_t>(b),
              static_cast<uint8_t>(a | opaque_)};
    }
    return {red_.widen(r), green_.widen(g), blue_.widen(b),
            alpha_.max == 0 ? uint8_t{255} : alpha_.widen(a)};
  }

  uint32_t encode(const Colour& colour) const {
    if (mapped_) return nearest(colour);
    if (direct_) {
      return uint32_t{colour.red} << red_.shift | uint32_t{colour.green} << green_.shift |
             uint32_t{colour.blue} << blue_.shift |
             (uint32_t{colour.alpha} & alpha_.max) << alpha_.shift;
    }
    return red_.narrow(colour.red) | green_.narrow(colour.green) | blue_.narrow(colour.blue) |
           alpha_.narrow(colour.alpha);
  }

 private:
  struct Channel {
    Channel(uint32_t channelMax, int channelShift);

    uint8_t widen(uint32_t v) const {
      return max < scale.size() ? scale[v] : static_cast<uint8_t>((v * 255 + max / 2) / max);
    }
    uint32_t narrow(uint32_t v) const { return (v * max + 127) / 255 << shift; }

    uint32_t max;
    int shift;
    // v scaled from 0..max to 0..255, for the usual channels of up to 8 bits.
    std::array<uint8_t, 256> scale;
  };

  Colour lookup(uint32_t index) const;
  uint32_t nearest(const Colour& colour) const;

  const ColourMap* colourMap_;
  bool mapped_;
  bool swapped_;
  bool direct_;  // every channel has 8 bits
  uint32_t opaque_;
  Channel red_, green_, blue_, alpha_;
  std::vector<Colour> entries_;  // of the colour map
  // The last answer of a search through the map: neighbouring pixels are often alike.
  mutable Colour lastColour_;
  mutable uint32_t lastNearest_ = 0;
  mutable bool hasLast_ = false;
};

}  // namespace rfb
