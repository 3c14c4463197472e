#pragma once

#include <cstdint>

#include "plat/String.h"
#include "rdr/Serializable.h"

namespace plat {

// One monitor of a desktop, as messages carry it.
class DisplayInfo : public rdr::Serializable {
 public:
  // Longest string that is read, in bytes.
  static constexpr size_t kMaxString = 1024;

  // Four flags as U8, five U32 (depth and the corners), three strings.
  void read(rdr::InStream& in) override;
  void write(rdr::OutStream& out) const override;

  bool primary = false;
  bool flag2 = false;
  bool flag3 = false;
  bool flag4 = true;
  uint32_t depth = 0;
  // In root window coordinates; right and bottom are exclusive.
  int32_t left = 0;
  int32_t top = 0;
  int32_t right = 0;
  int32_t bottom = 0;
  String name;
  String secondName;
  String thirdName;
};

}  // namespace plat
