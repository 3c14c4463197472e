#pragma once

#include <X11/Xlib.h>

#include <array>
#include <cstdint>

#include "rfb/ColourMap.h"

namespace tx {

// The colours of an X colormap with at most 256 entries.
class ColourMapX11 : public rfb::ColourMap {
 public:
  // The default colormap of the screen of this visual, which must be a colour-map visual with at
  // most 256 entries (asserted).
  explicit ColourMapX11(Visual* visual);

  void lookup(int index, int* r, int* g, int* b) const override;
  int size() const override { return size_; }

  // Reads the colours again; returns whether one differs from before.
  bool update();

 private:
  Colormap map_;
  int size_;
  struct Colour {
    uint8_t r, g, b;
    friend bool operator==(const Colour&, const Colour&) = default;
  };
  std::array<Colour, 256> colours_{};
};

}  // namespace tx
