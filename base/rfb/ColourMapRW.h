#pragma once

#include "rfb/ColourMap.h"

namespace rfb {

// A colour map whose entries can be set.
class ColourMapRW : public ColourMap {
 public:
  // Channels are 0..255; an index outside the map is ignored.
  virtual void set(int index, int red, int green, int blue) = 0;
};

}  // namespace rfb
