#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace plat {

// 0 to 15, or -1.
int hexDigit(char c);
// Decodes two digits of either case a byte into out, which has room for hex.size() / 2 bytes. False
// for an odd length or another character; out may then be partly written.
bool hexDecode(std::string_view hex, unsigned char* out);
// Lower case.
std::string hexEncode(const unsigned char* data, size_t size);

}  // namespace plat
