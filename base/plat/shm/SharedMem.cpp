#include "plat/shm/SharedMem.h"

#include <atomic>

#include "plat/Exception.h"
#include "plat/shm/SharedMemPosix.h"
#include "plat/shm/SharedMemSysV.h"

namespace plat {

namespace {

std::atomic<uint64_t> nextSerial{0};

}  // namespace

SharedMem::SharedMem(uint32_t size) : size_(size), serial_(nextSerial++) {}

std::unique_ptr<SharedMem> SharedMem::open(const SharedMemDescriptor& descriptor) {
  switch (descriptor.kind) {
    case SharedMemDescriptor::Kind::kPosix:
      return std::make_unique<SharedMemPosix>(descriptor.name.str(), descriptor.size,
                                              descriptor.isFile, descriptor.pos);
    case SharedMemDescriptor::Kind::kSysV:
      return std::make_unique<SharedMemSysV>(descriptor.id, descriptor.size);
  }
  throw Exception("Unsupported memory type received");
}

}  // namespace plat
