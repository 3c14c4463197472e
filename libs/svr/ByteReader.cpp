#include "svr/ByteReader.h"

#include <utility>

namespace svr {

void ByteReader::begin(size_t length) {
  reset();
  expected_ = length;
  inProgress_ = true;
}

bool ByteReader::read(rdr::InStream& in) {
  try {
    while (received_ < expected_) {
      const size_t count = in.check(1, expected_ - received_, false);
      if (count == 0) return false;
      if (dropped() == 0) text_.append(reinterpret_cast<const char*>(in.getPtr()), count);
      in.setPtr(in.getPtr() + count);
      received_ += count;
    }
  } catch (...) {
    reset();
    throw;
  }
  return true;
}

std::string ByteReader::take() {
  std::string text = std::move(text_);
  reset();
  return text;
}

void ByteReader::reset() {
  std::string().swap(text_);  // with its memory
  expected_ = received_ = 0;
  inProgress_ = false;
}

}  // namespace svr
