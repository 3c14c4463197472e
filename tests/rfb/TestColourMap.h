#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "rfb/Colour.h"
#include "rfb/ColourMap.h"

// A colour map in memory.
class TestColourMap : public rfb::ColourMap {
 public:
  explicit TestColourMap(std::vector<rfb::Colour> entries) : entries_(std::move(entries)) {}

  void lookup(int index, int* red, int* green, int* blue) const override {
    const bool inside = index >= 0 && index < size();
    const rfb::Colour colour = inside ? entries_[static_cast<size_t>(index)] : rfb::Colour();
    *red = colour.red;
    *green = colour.green;
    *blue = colour.blue;
  }
  int size() const override { return static_cast<int>(entries_.size()); }

 private:
  std::vector<rfb::Colour> entries_;
};
