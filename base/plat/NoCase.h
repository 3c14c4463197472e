#pragma once

#include <string_view>

namespace plat {

// ASCII case folding, whatever the locale.
char toLowerAscii(char c);
// Below, at or above 0, as strcmp.
int compareNoCase(std::string_view a, std::string_view b);
bool equalNoCase(std::string_view a, std::string_view b);

struct NoCaseLess {
  using is_transparent = void;
  bool operator()(std::string_view a, std::string_view b) const { return compareNoCase(a, b) < 0; }
};

}  // namespace plat
