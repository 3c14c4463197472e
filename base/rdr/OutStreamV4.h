#pragma once

#include "rdr/FramedOutStream.h"

namespace rdr {

// The agent channel's frames: two bytes big-endian, of which bit 15 marks the last frame of its
// message and the others are the length of the payload that follows.
class OutStreamV4 : public FramedOutStream {
 public:
  static constexpr size_t kHeaderSize = 2;
  // One less than what the header could say, and than what readers take.
  static constexpr size_t kMaxFrame = 32766;

  explicit OutStreamV4(OutStream* underlying = nullptr)
      : FramedOutStream(underlying, kHeaderSize, kMaxFrame) {}

 protected:
  void writeHeader(OutStream& out, size_t frameLength, bool last, bool first) override;
};

}  // namespace rdr
