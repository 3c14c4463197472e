#pragma once

#include <cstdint>

namespace rfb {

// The keysym that does the same on another key, such as the left Shift for the right one or a digit
// for its keypad twin; 0 if there is none.
uint32_t alternateKeysym(uint32_t keysym);

}  // namespace rfb
