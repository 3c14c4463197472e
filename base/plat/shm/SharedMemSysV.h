#pragma once

#include <cstdint>
#include <memory>

#include "plat/Exception.h"
#include "plat/shm/LockFile.h"
#include "plat/shm/SharedMem.h"
#include "plat/shm/SharedMemPermissions.h"

namespace plat {

// A System V shared-memory segment, attached. The process that creates one holds a lock file for
// it, by which a later process finds the segments of those that crashed.
class SharedMemSysV : public SharedMem {
 public:
  // The system gives no more segments, or none of that size: anybody may have used them up.
  class NoneLeft : public SystemException {
   public:
    using SystemException::SystemException;
  };

  // Creates and attaches a segment of `size` bytes, mode 0600 or as in `permissions` (may be null),
  // zero-filled. Throws NoneLeft, and SystemException, also when the permissions cannot be set.
  explicit SharedMemSysV(uint32_t size, const SharedMemPermissions* permissions = nullptr);
  // Attaches an existing segment. Throws SystemException, and Exception for an id that cannot be or
  // a segment of fewer bytes.
  SharedMemSysV(int id, uint32_t size);
  // Detaches, and removes the segment when it was created here.
  ~SharedMemSysV() override;

  int id() const { return id_; }

  SharedMemDescriptor descriptor() const override;

  // Removes the segments whose creator is gone. Creating does this once in each process.
  static void cleanStale();

 private:
  SharedMemSysV(uint32_t size, std::nullptr_t);
  void attach(const SharedMemPermissions* permissions);

  int id_ = -1;
  int attachedId_ = -1;
  bool created_ = false;
  Leftovers::Entry leftover_;
  std::unique_ptr<LockFile> lock_;
};

}  // namespace plat
