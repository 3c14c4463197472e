#pragma once

#include <utility>

namespace plat {

// An owned file descriptor: closed on destruction. -1 when there is none.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int fd) : fd_(fd) {}
  FileDescriptor(FileDescriptor&& other) noexcept : fd_(other.release()) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  ~FileDescriptor() { reset(); }

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  // Gives the descriptor away.
  int release() { return std::exchange(fd_, -1); }
  // Closes the descriptor that is held, and holds the given one. Leaves errno alone.
  void reset(int fd = -1) noexcept;

  // Both throw SystemException.
  static void setNonBlocking(int fd);
  static void setCloseOnExec(int fd);

 private:
  int fd_ = -1;
};

}  // namespace plat
