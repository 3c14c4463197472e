#include "plat/NoCase.h"

#include <algorithm>

namespace plat {

char toLowerAscii(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

int compareNoCase(std::string_view a, std::string_view b) {
  const size_t common = std::min(a.size(), b.size());
  for (size_t i = 0; i < common; ++i) {
    const auto x = static_cast<unsigned char>(toLowerAscii(a[i]));
    const auto y = static_cast<unsigned char>(toLowerAscii(b[i]));
    if (x != y) return x < y ? -1 : 1;
  }
  if (a.size() == b.size()) return 0;
  return a.size() < b.size() ? -1 : 1;
}

bool equalNoCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && compareNoCase(a, b) == 0;
}

}  // namespace plat
