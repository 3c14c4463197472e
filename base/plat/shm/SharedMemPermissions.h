#pragma once

#include <cstdint>

namespace plat {

// Owner, group and mode for new shared memory. An id of -1 leaves that one as it is.
struct SharedMemPermissions {
  int32_t uid = -1;
  int32_t gid = -1;
  uint32_t mode = 0600;
};

}  // namespace plat
