#pragma once

#include <memory>

#include "rdr/OutStream.h"

namespace rdr {

// Writes into a buffer that grows as needed.
class MemOutStream : public OutStream {
 public:
  explicit MemOutStream(size_t initialCapacity = 1024);

  // What was written; valid until the next write.
  const uint8_t* data() const { return buffer_.get(); }
  size_t size() const { return static_cast<size_t>(ptr_ - buffer_.get()); }
  uint64_t length() const override { return size(); }
  // Forgets what was written; the memory stays.
  void clear() { ptr_ = buffer_.get(); }

 protected:
  size_t overrun(size_t itemSize, size_t nItems) override;

 private:
  std::unique_ptr<uint8_t[]> buffer_;
};

}  // namespace rdr
