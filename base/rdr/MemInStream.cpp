#include "rdr/MemInStream.h"

#include "rdr/Exceptions.h"

namespace rdr {

MemInStream::MemInStream(const void* data, size_t length)
    : start_(static_cast<const uint8_t*>(data)), checkpoint_(start_) {
  ptr_ = start_;
  end_ = start_ + length;
}

void MemInStream::setPos(size_t pos) {
  if (pos < static_cast<size_t>(checkpoint_ - start_)) {
    throw plat::Exception("Can't reposition before checkpoint");
  }
  if (pos > static_cast<size_t>(end_ - start_)) {
    throw plat::Exception("Can't reposition beyond the end");
  }
  ptr_ = start_ + pos;
}

size_t MemInStream::overrun(size_t, size_t, bool) {
  throw EndOfStream("End of in-memory input stream");
}

}  // namespace rdr
