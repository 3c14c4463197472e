#include "plat/shm/openSharedMem.h"

#include "plat/Exception.h"
#include "plat/shm/SharedMemPosix.h"
#include "plat/shm/SharedMemSysV.h"

namespace plat {

std::unique_ptr<SharedMem> openSharedMem(const SharedMemDescriptor& descriptor) {
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
