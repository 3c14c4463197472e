#include "rdr/NullOutStream.h"

#include <algorithm>

namespace rdr {

namespace {
constexpr size_t kInitialSize = 33 * 1024;  // a whole frame
}

void NullOutStream::flush() {
  discarded_ += size_ - space();
  ptr_ = buffer_.get();
}

size_t NullOutStream::overrun(size_t itemSize, size_t nItems) {
  flush();
  if (space() < itemSize) {
    size_ = std::max(itemSize, kInitialSize);
    buffer_ = std::make_unique_for_overwrite<uint8_t[]>(size_);
    ptr_ = buffer_.get();
    end_ = ptr_ + size_;
  }
  return std::min(nItems, space() / itemSize);
}

}  // namespace rdr
