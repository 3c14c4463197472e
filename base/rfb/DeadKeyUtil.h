#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "rfb/DeadKeyTables.h"

namespace rfb {

// Knows which dead key stands for an accent, and how accented letters are spelled with dead keys:
// built-in tables, changed by the file that the parameter DeadKeyFile names.
class DeadKeyUtil {
 public:
  // A dead key and the key that follows it.
  struct Spelling {
    uint32_t dead;
    uint32_t base;

    friend bool operator==(const Spelling&, const Spelling&) = default;
  };

  // Loads the built-in tables, then the file. An entry of the file for a keyboard layout is
  // preferred to the general one when the layout's name is given.
  explicit DeadKeyUtil(const std::string& layout = "");

  // The dead keysym for a spacing accent; 0 if there is none.
  uint32_t deadKeysym(uint32_t spacing) const;
  // How a keysym is composed; null if it is not known to be.
  const Spelling* spelling(uint32_t composed) const;

 private:
  void load(const std::string& path, const std::string& layout);

  std::vector<SpacingDead> spacing_;
  std::map<uint32_t, Spelling> compositions_;
};

}  // namespace rfb
