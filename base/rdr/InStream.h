#pragma once

#include <cstddef>
#include <cstdint>

#include "plat/String.h"

namespace rdr {

// Abstract reader over a span of buffered bytes. Typed reads work in the span; only when it is
// exhausted does the virtual refill run. All integers are big-endian.
//
// Errors: EndOfStream when the source is exhausted, EndOfMsg at the end of a framed message,
// BlockException when a source that may not block has no more bytes yet.
class InStream {
 public:
  virtual ~InStream() = default;
  InStream(const InStream&) = delete;
  InStream& operator=(const InStream&) = delete;

  // Makes at least one item of itemSize bytes available and returns how many items (at most nItems)
  // are. With wait false it returns 0 instead of waiting.
  size_t check(size_t itemSize, size_t nItems = 1, bool wait = true) {
    const size_t bytes = available();
    if (bytes >= itemSize * nItems) return nItems;
    if (bytes >= itemSize) return bytes / itemSize;
    return overrun(itemSize, nItems, wait);
  }

  uint8_t readU8() {
    check(1);
    return *ptr_++;
  }
  uint16_t readU16() {
    check(2);
    const uint8_t* p = ptr_;
    ptr_ += 2;
    return static_cast<uint16_t>(p[0] << 8 | p[1]);
  }
  uint32_t readU32() {
    check(4);
    const uint8_t* p = ptr_;
    ptr_ += 4;
    return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 |
           static_cast<uint32_t>(p[2]) << 8 | static_cast<uint32_t>(p[3]);
  }
  uint64_t readU64() {
    const uint64_t high = readU32();
    return high << 32 | readU32();
  }
  int32_t readS32() { return static_cast<int32_t>(readU32()); }

  void readBytes(void* data, size_t length);
  void skip(size_t length);
  // U32 count, then that many bytes. A count above maxLength throws StringTooLongException before
  // any byte of the text is consumed.
  plat::String readString(size_t maxLength);
  // U8 count, then that many bytes.
  plat::String readShortString();
  // Up to a line feed, which is consumed; carriage returns are dropped. 0 means 262144 bytes.
  plat::String readLine(size_t maxLength = 0);

  // The bytes at hand.
  const uint8_t* getPtr() const { return ptr_; }
  const uint8_t* getEnd() const { return end_; }
  size_t available() const { return static_cast<size_t>(end_ - ptr_); }
  void setPtr(const uint8_t* p);

 protected:
  InStream() = default;

  // Refills the span; see check().
  virtual size_t overrun(size_t itemSize, size_t nItems, bool wait) = 0;

  const uint8_t* ptr_ = nullptr;
  const uint8_t* end_ = nullptr;
};

}  // namespace rdr
