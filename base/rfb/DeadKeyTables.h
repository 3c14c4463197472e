#pragma once

#include <cstdint>
#include <span>

// Which keysyms are accents and accented letters. The numbers are those of the X protocol.

namespace rfb {

// A dead key, and a keysym that shows its accent alone.
struct SpacingDead {
  uint32_t spacing;
  uint32_t dead;
};

// An accented letter (or a spacing accent), spelled as a dead key and another key.
struct Composition {
  uint32_t composed;
  uint32_t dead;
  uint32_t base;
};

// In the order in which they are to be searched.
extern const std::span<const SpacingDead> kSpacingDeads;

extern const std::span<const Composition> kLatin1Compositions;
extern const std::span<const Composition> kLatin2Compositions;
extern const std::span<const Composition> kLatin3Compositions;
extern const std::span<const Composition> kLatin4Compositions;
extern const std::span<const Composition> kWelshCompositions;
extern const std::span<const Composition> kLatin9Compositions;
extern const std::span<const Composition> kGreekCompositions;

}  // namespace rfb
