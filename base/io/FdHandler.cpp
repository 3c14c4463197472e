#include "io/FdHandler.h"

namespace io {

FdHandler::~FdHandler() {
  if (registry_) registry_->unregister(*this);
  if (ownsFd_) plat::FileDescriptor(fd_).reset();
}

void FdHandler::setFd(int fd) {
  if (registry_) registry_->dropReadiness(*this);
  const plat::FileDescriptor former(ownsFd_ ? fd_ : -1);
  fd_ = fd;
  ownsFd_ = false;
}

void FdHandler::setFd(plat::FileDescriptor fd) {
  setFd(fd.release());
  ownsFd_ = true;
}

}  // namespace io
