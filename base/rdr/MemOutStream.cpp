#include "rdr/MemOutStream.h"

#include <algorithm>
#include <cstring>

namespace rdr {

MemOutStream::MemOutStream(size_t initialCapacity)
    : buffer_(std::make_unique_for_overwrite<uint8_t[]>(initialCapacity)) {
  ptr_ = buffer_.get();
  end_ = ptr_ + initialCapacity;
}

size_t MemOutStream::overrun(size_t itemSize, size_t nItems) {
  const size_t used = size();
  const size_t capacity = std::max(2 * (used + space()), used + itemSize);
  auto larger = std::make_unique_for_overwrite<uint8_t[]>(capacity);
  if (used > 0) std::memcpy(larger.get(), buffer_.get(), used);
  buffer_ = std::move(larger);
  ptr_ = buffer_.get() + used;
  end_ = buffer_.get() + capacity;
  return std::min(nItems, space() / itemSize);
}

}  // namespace rdr
