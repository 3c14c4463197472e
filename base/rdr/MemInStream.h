#pragma once

#include "rdr/InStream.h"

namespace rdr {

// Reads a block of memory, which is not owned. Running off its end throws EndOfStream "End of
// in-memory input stream".
class MemInStream : public InStream {
 public:
  MemInStream(const void* data, size_t length);

  // Bytes read so far.
  size_t pos() const { return static_cast<size_t>(ptr_ - start_); }
  // Reading may be taken back to here, and no further.
  void checkpoint() { checkpoint_ = ptr_; }
  // Goes to a position between the checkpoint (at first the start) and the end. Throws
  // plat::Exception for any other.
  void setPos(size_t pos);

 protected:
  size_t overrun(size_t itemSize, size_t nItems, bool wait) override;

 private:
  const uint8_t* start_;
  const uint8_t* checkpoint_;
};

}  // namespace rdr
