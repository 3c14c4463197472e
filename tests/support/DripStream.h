#pragma once

#include <algorithm>
#include <string>
#include <utility>

#include "rdr/Exceptions.h"
#include "rdr/InStream.h"

namespace support {

// Bytes that arrive when the test lets them.
class DripStream : public rdr::InStream {
 public:
  explicit DripStream(std::string bytes) : bytes_(std::move(bytes)) {
    ptr_ = end_ = reinterpret_cast<const uint8_t*>(bytes_.data());
  }
  // False when all have arrived before.
  bool arrive(size_t n) {
    const size_t left = bytes_.size() - arrived_;
    arrived_ += std::min(n, left);
    end_ = reinterpret_cast<const uint8_t*>(bytes_.data()) + arrived_;
    return left > 0;
  }
  // How often a reader ran short.
  size_t reads() const { return reads_; }

 private:
  size_t overrun(size_t, size_t, bool wait) override {
    ++reads_;
    if (arrived_ == bytes_.size()) throw rdr::EndOfStream();
    if (wait) throw rdr::BlockException();
    return 0;
  }

  std::string bytes_;
  size_t arrived_ = 0;
  size_t reads_ = 0;
};

}  // namespace support
