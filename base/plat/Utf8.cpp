#include "plat/Utf8.h"

#include <cstdint>

namespace plat {

namespace {

bool isContinuation(unsigned char c) {
  return (c & 0xC0) == 0x80;
}

// The length that a first byte announces; 0 for a byte that cannot be the first.
size_t announcedLength(unsigned char c) {
  if (c < 0x80) return 1;
  if (c >= 0xC2 && c <= 0xDF) return 2;
  if (c >= 0xE0 && c <= 0xEF) return 3;
  if (c >= 0xF0 && c <= 0xF4) return 4;
  return 0;
}

// Decodes the sequence at the position. Returns its length, or 0 when it is not well-formed.
size_t decode(std::string_view text, size_t position, uint32_t& character) {
  const auto at = [&](size_t i) { return static_cast<unsigned char>(text[position + i]); };
  const size_t length = announcedLength(at(0));
  if (length == 0 || length > text.size() - position) return 0;
  if (length == 1) {
    character = at(0);
    return 1;
  }
  character = at(0) & (0x7Fu >> length);
  for (size_t i = 1; i < length; ++i) {
    if (!isContinuation(at(i))) return 0;
    character = character << 6 | (at(i) & 0x3Fu);
  }
  const bool overlong = (length == 3 && character < 0x800) || (length == 4 && character < 0x10000);
  const bool surrogate = character >= 0xD800 && character <= 0xDFFF;
  return overlong || surrogate || character > 0x10FFFF ? 0 : length;
}

}  // namespace

bool isValidUtf8(std::string_view text) {
  uint32_t character;
  for (size_t i = 0; i < text.size();) {
    const size_t length = decode(text, i, character);
    if (length == 0) return false;
    i += length;
  }
  return true;
}

size_t utf8CutLength(std::string_view text, size_t limit) {
  if (text.size() <= limit) return text.size();
  for (size_t back = 0; back < 4 && back <= limit; ++back) {
    const size_t start = limit - back;
    if (isContinuation(static_cast<unsigned char>(text[start]))) continue;
    uint32_t character;
    return decode(text, start, character) > back ? start : limit;
  }
  return limit;
}

std::string_view utf8Cut(std::string_view text, size_t limit) {
  return text.substr(0, utf8CutLength(text, limit));
}

std::string latin1ToUtf8(std::string_view latin1) {
  std::string utf8;
  utf8.reserve(latin1.size());
  for (const char c : latin1) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x80) {
      utf8 += c;
    } else {
      utf8 += static_cast<char>(0xC0 | byte >> 6);
      utf8 += static_cast<char>(0x80 | (byte & 0x3F));
    }
  }
  return utf8;
}

std::string utf8ToLatin1(std::string_view utf8) {
  std::string latin1;
  latin1.reserve(utf8.size());
  for (size_t i = 0; i < utf8.size();) {
    uint32_t character = 0;
    const size_t length = decode(utf8, i, character);
    latin1 += length && character <= 0xFF ? static_cast<char>(character) : '?';
    i += length ? length : 1;
  }
  return latin1;
}

}  // namespace plat
