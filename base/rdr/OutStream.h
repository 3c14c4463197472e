#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace rdr {

// Abstract writer over a span of buffer space. Typed writes work in the span; only when it is full
// does the virtual overrun run. All integers are big-endian.
class OutStream {
 public:
  virtual ~OutStream() = default;
  OutStream(const OutStream&) = delete;
  OutStream& operator=(const OutStream&) = delete;

  // Makes room for at least one item of itemSize bytes and returns how many items (at most nItems)
  // fit.
  size_t check(size_t itemSize, size_t nItems = 1) {
    const size_t bytes = space();
    if (bytes >= itemSize * nItems) return nItems;
    if (bytes >= itemSize) return bytes / itemSize;
    return overrun(itemSize, nItems);
  }

  void writeU8(uint8_t value) {
    check(1);
    *ptr_++ = value;
  }
  void writeU16(uint16_t value) {
    check(2);
    *ptr_++ = static_cast<uint8_t>(value >> 8);
    *ptr_++ = static_cast<uint8_t>(value);
  }
  void writeU32(uint32_t value) {
    check(4);
    *ptr_++ = static_cast<uint8_t>(value >> 24);
    *ptr_++ = static_cast<uint8_t>(value >> 16);
    *ptr_++ = static_cast<uint8_t>(value >> 8);
    *ptr_++ = static_cast<uint8_t>(value);
  }
  void writeU64(uint64_t value) {
    writeU32(static_cast<uint32_t>(value >> 32));
    writeU32(static_cast<uint32_t>(value));
  }
  void writeS32(int32_t value) { writeU32(static_cast<uint32_t>(value)); }

  void writeBytes(const void* data, size_t length);
  // U32 count, then the bytes.
  void writeString(std::string_view text);
  // U8 count, then the bytes; cut to 255 bytes.
  void writeShortString(std::string_view text);
  // Zero bytes.
  void pad(size_t length);

  virtual void flush() {}
  // Bytes written so far.
  virtual uint64_t length() const = 0;

  uint8_t* getPtr() { return ptr_; }
  uint8_t* getEnd() { return end_; }
  size_t space() const { return static_cast<size_t>(end_ - ptr_); }
  void setPtr(uint8_t* p) { ptr_ = p; }

 protected:
  OutStream() = default;

  // Makes room; see check().
  virtual size_t overrun(size_t itemSize, size_t nItems) = 0;

  uint8_t* ptr_ = nullptr;
  uint8_t* end_ = nullptr;
};

}  // namespace rdr
