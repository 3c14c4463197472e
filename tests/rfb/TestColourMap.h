#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "rfb/Colour.h"
#include "rfb/ColourMapRW.h"

// A colour map in memory.
class TestColourMap : public rfb::ColourMapRW {
 public:
  explicit TestColourMap(std::vector<rfb::Colour> entries) : entries_(std::move(entries)) {}

  void lookup(int index, int* red, int* green, int* blue) const override {
    const rfb::Colour colour = inside(index) ? entries_[static_cast<size_t>(index)] : rfb::Colour();
    *red = colour.red;
    *green = colour.green;
    *blue = colour.blue;
  }
  int size() const override { return static_cast<int>(entries_.size()); }
  void set(int index, int red, int green, int blue) override {
    if (inside(index))
      entries_[static_cast<size_t>(index)] = {
          static_cast<uint8_t>(red), static_cast<uint8_t>(green), static_cast<uint8_t>(blue), 255};
  }

 private:
  bool inside(int index) const { return index >= 0 && index < size(); }

  std::vector<rfb::Colour> entries_;
};
