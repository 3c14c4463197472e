#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

// What the tests of keyboard input know of Unicode: the characters of keysyms and the canonical
// decompositions of the accented letters that they use, as the Unicode character database has them.
namespace unicode {

struct Decomposition {
  char32_t composed;
  char32_t base;
  char32_t mark;
};

// The keysym that keyboard maps use for a character: one of the X protocol's older numbers where
// there is one, else the number of the character with bit 24 set.
uint32_t keysymOf(char32_t character);
// 0 for a keysym that is no character.
char32_t characterOf(uint32_t keysym);

const std::vector<Decomposition>& decompositions();
// 0 if the two do not combine.
char32_t composed(char32_t base, char32_t mark);

}  // namespace unicode
