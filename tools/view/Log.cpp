#include "Log.h"

#include <cstdio>

namespace view {

void log(const std::string& text) {
  std::string line = "ruvoview: ";
  for (const char c : text) line += static_cast<unsigned char>(c) < 0x20 || c == 0x7f ? '?' : c;
  line += '\n';
  std::fputs(line.c_str(), stderr);
}

}  // namespace view
