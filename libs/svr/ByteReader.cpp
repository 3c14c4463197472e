#include "svr/ByteReader.h"

#include <algorithm>

#include "plat/Exception.h"

namespace svr {

void ByteReader::init(size_t length) {
  if (inProgress_) {
    if (length != expected_) throw plat::Exception("ByteReader::init: bad len");
    return;
  }
  buffer_.clear();
  expected_ = length;
  inProgress_ = true;
}

bool ByteReader::read(rdr::InStream& in) {
  while (buffer_.size() < expected_) {
    const size_t count = in.check(1, expected_ - buffer_.size(), false);
    if (count == 0) return false;
    const char* bytes = reinterpret_cast<const char*>(in.getPtr());
    buffer_.insert(buffer_.end(), bytes, bytes + count);
    in.setPtr(in.getPtr() + count);
  }
  return true;
}

void ByteReader::reset() {
  buffer_ = {};
  expected_ = 0;
  inProgress_ = false;
}

}  // namespace svr
