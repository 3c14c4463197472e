#pragma once

#include <cstdint>

#include "plat/String.h"

namespace plat {

// What another process needs to know to map a block. rdr/SharedMemDescriptor.h puts it on a stream;
// it is data here, as this layer knows no streams.
struct SharedMemDescriptor {
  enum class Kind : uint8_t { kPosix = 0, kSysV = 1 };

  Kind kind = Kind::kPosix;
  uint32_t size = 0;  // bytes
  String name;        // posix: object name, or path of a file
  bool isFile = false;
  uint64_t pos = 0;  // posix: offset of the block in the file
  int32_t id = -1;   // sysV: segment id
};

// A mapped block of memory that other processes can map too.
class SharedMem {
 public:
  virtual ~SharedMem() = default;
  SharedMem(const SharedMem&) = delete;
  SharedMem& operator=(const SharedMem&) = delete;

  uint8_t* data() const { return data_; }
  uint32_t size() const { return size_; }
  // Differs between all blocks of this process; counts from 0.
  uint64_t serial() const { return serial_; }

  virtual SharedMemDescriptor descriptor() const = 0;

 protected:
  explicit SharedMem(uint32_t size);

  uint8_t* data_ = nullptr;
  const uint32_t size_;

 private:
  const uint64_t serial_;
};

}  // namespace plat
