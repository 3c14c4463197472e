#include "plat/Hex.h"

namespace plat {

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool hexDecode(std::string_view hex, unsigned char* out) {
  if (hex.size() % 2 != 0) return false;
  for (size_t i = 0; i < hex.size(); i += 2) {
    const int high = hexDigit(hex[i]);
    const int low = hexDigit(hex[i + 1]);
    if (high < 0 || low < 0) return false;
    *out++ = static_cast<unsigned char>(high << 4 | low);
  }
  return true;
}

std::string hexEncode(const unsigned char* data, size_t size) {
  static const char digits[] = "0123456789abcdef";
  std::string hex;
  hex.reserve(size * 2);
  for (size_t i = 0; i < size; ++i) {
    hex += digits[data[i] >> 4];
    hex += digits[data[i] & 15];
  }
  return hex;
}

}  // namespace plat
