#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace plat {

// True for well-formed UTF-8 (RFC 3629): no overlong forms, no surrogates, nothing above U+10FFFF.
bool isValidUtf8(std::string_view text);

// The number of bytes, at most limit, that can be kept of the text without splitting a sequence.
// Bytes that are no UTF-8 are cut exactly at the limit.
size_t utf8CutLength(std::string_view text, size_t limit);
std::string_view utf8Cut(std::string_view text, size_t limit);

std::string latin1ToUtf8(std::string_view latin1);
// Characters outside Latin-1, and bytes that are no UTF-8, become '?'.
std::string utf8ToLatin1(std::string_view utf8);

}  // namespace plat
