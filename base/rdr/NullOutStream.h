#pragma once

#include <memory>

#include "rdr/OutStream.h"

namespace rdr {

// Discards everything.
class NullOutStream : public OutStream {
 public:
  NullOutStream() = default;

  uint64_t length() const override { return discarded_ + (size_ - space()); }
  void flush() override;

 protected:
  size_t overrun(size_t itemSize, size_t nItems) override;

 private:
  std::unique_ptr<uint8_t[]> buffer_;
  size_t size_ = 0;
  uint64_t discarded_ = 0;
};

}  // namespace rdr
