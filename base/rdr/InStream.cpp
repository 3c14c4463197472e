#include "rdr/InStream.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "plat/Assert.h"
#include "rdr/Exceptions.h"

namespace rdr {

namespace {
constexpr size_t kDefaultMaxLine = 0x40000;
}

void InStream::readBytes(void* data, size_t length) {
  uint8_t* to = static_cast<uint8_t*>(data);
  while (length > 0) {
    const size_t n = check(1, length);
    std::memcpy(to, ptr_, n);
    ptr_ += n;
    to += n;
    length -= n;
  }
}

void InStream::skip(size_t length) {
  while (length > 0) {
    const size_t n = check(1, length);
    ptr_ += n;
    length -= n;
  }
}

plat::String InStream::readString(size_t maxLength) {
  size_t left = readU32();
  if (left > maxLength) throw StringTooLongException();
  // Grows with the bytes that arrive, so that the count alone claims no memory.
  std::string text;
  while (left > 0) {
    const size_t n = check(1, left);
    text.append(reinterpret_cast<const char*>(ptr_), n);
    ptr_ += n;
    left -= n;
  }
  return plat::String(std::move(text));
}

plat::String InStream::readShortString() {
  char text[255];
  const size_t length = readU8();
  readBytes(text, length);
  return plat::String(text, length);
}

plat::String InStream::readLine(size_t maxLength) {
  if (maxLength == 0) maxLength = kDefaultMaxLine;
  std::string line;
  for (;;) {
    const char c = static_cast<char>(readU8());
    if (c == '\n') return plat::String(std::move(line));
    if (c == '\r') continue;
    if (line.size() == maxLength) throw StringTooLongException();
    line.push_back(c);
  }
}

void InStream::setPtr(const uint8_t* p) {
  PLAT_ASSERT_TEXT(p >= ptr_ && p <= end_, "p >= ptr && p <= end");
  ptr_ = p;
}

}  // namespace rdr
