#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace drive {

// The keysyms of UTF-8 text, a line end being Return. Throws Failure.
std::vector<uint32_t> keysymsOfText(const std::string& text);
// The keysyms of a combination such as "ctrl+Page_Up": common names of keys, names of keysyms,
// characters, numbers. Throws Failure.
std::vector<uint32_t> keysymsOfCombination(const std::string& combination);
// For people: the character or the name of a keysym.
std::string keysymText(uint32_t keysym);

}  // namespace drive
