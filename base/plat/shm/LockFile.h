#pragma once

#include <memory>
#include <string>
#include <utility>

#include "plat/FileDescriptor.h"
#include "plat/shm/Leftovers.h"

namespace plat {

// A file that is locked for as long as the object lives, and then removed. The lock goes with the
// process: a file that is there but not locked was left by one that crashed.
class LockFile {
 public:
  // Creates the file (mode 0600) if need be, and locks it. Null when someone else holds it, never
  // waits. A link in the file's place is refused. Throws SystemException.
  static std::unique_ptr<LockFile> create(const std::string& path);
  // Locks a file that is there and that nobody holds. Null for every other case, links included.
  static std::unique_ptr<LockFile> openStale(const std::string& path);

  ~LockFile();
  LockFile(const LockFile&) = delete;
  LockFile& operator=(const LockFile&) = delete;

  const std::string& path() const { return path_; }
  // What the holder left in the file for those who find it; at most 63 bytes.
  std::string readNote() const;
  void writeNote(const std::string& note);

 private:
  LockFile(std::string path, FileDescriptor fd) : path_(std::move(path)), fd_(std::move(fd)) {
    leftover_.setFile(path_.c_str());
  }
  static std::unique_ptr<LockFile> lock(const std::string& path, int flags);

  const std::string path_;
  const FileDescriptor fd_;
  Leftovers::Entry leftover_;
};

}  // namespace plat
