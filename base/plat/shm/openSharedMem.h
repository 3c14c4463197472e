#pragma once

#include <memory>

#include "plat/shm/SharedMem.h"

namespace plat {

// Maps the block that another process described. Throws Exception for a descriptor that cannot be
// right, SystemException when the block cannot be opened or mapped.
std::unique_ptr<SharedMem> openSharedMem(const SharedMemDescriptor& descriptor);

}  // namespace plat
