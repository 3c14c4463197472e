#pragma once

#include <utility>
#include <vector>

#include "host/AgentListener.h"
#include "rfb/ColourMap.h"

namespace host {

// The colour map that an agent has told of.
class ColourTable : public rfb::ColourMap {
 public:
  explicit ColourTable(std::vector<ColourMapEntry> entries) : entries_(std::move(entries)) {}

  void lookup(int index, int* red, int* green, int* blue) const override {
    const bool known = index >= 0 && index < size();
    const ColourMapEntry entry = known ? entries_[static_cast<size_t>(index)] : ColourMapEntry{};
    *red = entry.red;
    *green = entry.green;
    *blue = entry.blue;
  }
  int size() const override { return static_cast<int>(entries_.size()); }

 private:
  const std::vector<ColourMapEntry> entries_;
};

}  // namespace host
