#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "svr/DisplaySize.h"

namespace svr {

// The names of the display modes that the agent is to keep on the X server: one for each size that
// is asked for, and one for each size of a list.
class WantedModes {
 public:
  // The list is sizes such as "1600x900" with commas between and blanks around them; what is no
  // size is left out.
  WantedModes(const std::vector<DisplaySize>& requested, std::string_view list);

  // Without duplicates, the requested ones first.
  const std::vector<std::string>& names() const { return names_; }
  bool contains(std::string_view name) const;

  // Whether a mode of this name is the agent's to delete.
  static bool isOwnName(std::string_view name);
  // The size in the name of an own mode.
  static std::optional<DisplaySize> sizeOf(std::string_view name);

 private:
  void add(std::string_view text);

  std::vector<std::string> names_;
};

}  // namespace svr
