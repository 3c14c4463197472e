#pragma once

#include <memory>
#include <string>

#include "plat/FileDescriptor.h"
#include "plat/shm/LockFile.h"
#include "plat/shm/SharedMem.h"
#include "plat/shm/SharedMemPermissions.h"

namespace plat {

// A POSIX shared-memory object, or a part of a file. The process that creates an object holds a
// lock file for it, by which a later process finds the objects of those that crashed.
class SharedMemPosix : public SharedMem {
 public:
  // Creates an object of `size` bytes, mode 0600 or as in `permissions` (may be null), zero-filled.
  // Throws SystemException. An owner that cannot be set is only logged.
  explicit SharedMemPosix(uint32_t size, const SharedMemPermissions* permissions = nullptr);
  // Maps an existing object or, with isFile, `size` bytes at `pos` of a file. Throws
  // SystemException, and Exception when there are fewer bytes than that.
  SharedMemPosix(const std::string& name, uint32_t size, bool isFile, uint64_t pos);
  ~SharedMemPosix() override;

  const std::string& name() const { return name_; }
  bool isFile() const { return isFile_; }
  uint64_t pos() const { return pos_; }

  SharedMemDescriptor descriptor() const override;

  // Removes the objects whose creator is gone. Creating does this once in each process.
  static void cleanStale();

 private:
  SharedMemPosix(std::string name, uint32_t size, bool isFile, uint64_t pos, std::nullptr_t);
  void create();
  void map();
  void applyPermissions(const SharedMemPermissions& permissions);

  std::string name_;
  const bool isFile_;
  const uint64_t pos_;
  FileDescriptor fd_;
  std::unique_ptr<LockFile> lock_;
  std::string unlinkName_;  // empty unless created here
  Leftovers::Entry leftover_;
  void* mapped_ = nullptr;
  size_t mappedSize_ = 0;
};

}  // namespace plat
