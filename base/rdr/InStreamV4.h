#pragma once

#include "rdr/FramedInStream.h"

namespace rdr {

// Reads the frames that OutStreamV4 writes, of up to 32767 bytes.
class InStreamV4 : public FramedInStream {
 public:
  static constexpr size_t kHeaderSize = 2;

  explicit InStreamV4(InStream* underlying = nullptr) : FramedInStream(underlying, kHeaderSize) {}

 protected:
  void readHeader(InStream& in, size_t& length, bool& last) override;
};

}  // namespace rdr
