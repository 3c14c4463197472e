#pragma once

namespace rfb {

// The colours behind the pixel values of a colour-map format. Channels are 0..255.
class ColourMap {
 public:
  virtual ~ColourMap() = default;

  // The colour of an entry; an index outside the map gives black.
  virtual void lookup(int index, int* red, int* green, int* blue) const = 0;
  virtual int size() const = 0;
  // The entry closest to a colour, the lowest of several; 0 for an empty map.
  virtual int nearest(int red, int green, int blue) const;
};

}  // namespace rfb
