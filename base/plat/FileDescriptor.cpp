#include "plat/FileDescriptor.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "plat/Exception.h"

namespace plat {

namespace {

void addFlag(int fd, int getCommand, int setCommand, int flag) {
  const int flags = fcntl(fd, getCommand);
  if (flags < 0 || fcntl(fd, setCommand, flags | flag) < 0) throw SystemException("fcntl", errno);
}

}  // namespace

void FileDescriptor::reset(int fd) noexcept {
  const int former = std::exchange(fd_, fd);
  if (former < 0 || former == fd) return;
  const int savedErrno = errno;
  // Not repeated on EINTR: the descriptor is gone by then.
  close(former);
  errno = savedErrno;
}

void FileDescriptor::setNonBlocking(int fd) {
  addFlag(fd, F_GETFL, F_SETFL, O_NONBLOCK);
}

void FileDescriptor::setCloseOnExec(int fd) {
  addFlag(fd, F_GETFD, F_SETFD, FD_CLOEXEC);
}

}  // namespace plat
