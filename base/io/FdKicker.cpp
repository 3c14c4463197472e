#include "io/FdKicker.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "io/FdManager.h"
#include "plat/Exception.h"

namespace io {

FdKicker::FdKicker(Callback* callback) : callback_(callback) {
  int ends[2];
  if (pipe2(ends, O_NONBLOCK | O_CLOEXEC) < 0) throw plat::SystemException("pipe", errno);
  setFd(plat::FileDescriptor(ends[0]));
  writeEnd_.reset(ends[1]);
  FdManager::instance().requirePollable(fd());
  FdManager::instance().setWants(*this, true, false);
}

void FdKicker::kick() noexcept {
  const int savedErrno = errno;
  const char byte = 0;
  // A pipe that is full wakes the loop as well.
  while (write(writeEnd_.get(), &byte, 1) < 0 && errno == EINTR) {
  }
  errno = savedErrno;
}

void FdKicker::readReady() {
  char drained[256];
  for (;;) {
    const ssize_t length = read(fd(), drained, sizeof drained);
    if (length > 0 || (length < 0 && errno == EINTR)) continue;
    break;
  }
  callback_->kicked(*this);
}

}  // namespace io
