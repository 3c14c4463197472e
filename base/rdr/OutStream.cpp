#include "rdr/OutStream.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "rdr/Exceptions.h"

namespace rdr {

void OutStream::writeBytes(const void* data, size_t length) {
  const uint8_t* from = static_cast<const uint8_t*>(data);
  while (length > 0) {
    const size_t n = check(1, length);
    std::memcpy(ptr_, from, n);
    ptr_ += n;
    from += n;
    length -= n;
  }
}

void OutStream::writeString(std::string_view text) {
  if (text.size() > std::numeric_limits<uint32_t>::max()) throw StringTooLongException();
  writeU32(static_cast<uint32_t>(text.size()));
  writeBytes(text.data(), text.size());
}

void OutStream::writeShortString(std::string_view text) {
  const size_t length = std::min<size_t>(text.size(), 255);
  writeU8(static_cast<uint8_t>(length));
  writeBytes(text.data(), length);
}

void OutStream::pad(size_t length) {
  while (length > 0) {
    const size_t n = check(1, length);
    std::memset(ptr_, 0, n);
    ptr_ += n;
    length -= n;
  }
}

}  // namespace rdr
