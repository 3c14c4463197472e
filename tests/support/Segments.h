#pragma once

#include <sys/shm.h>
#include <sys/types.h>

namespace support {

// System V segments made by a process that still exist.
inline int segmentsOf(pid_t pid) {
  shm_info info;
  const int last = shmctl(0, SHM_INFO, reinterpret_cast<shmid_ds*>(&info));
  int count = 0;
  for (int i = 0; i <= last; ++i) {
    shmid_ds segment;
    if (shmctl(i, SHM_STAT, &segment) >= 0 && segment.shm_cpid == pid) count++;
  }
  return count;
}

}  // namespace support
