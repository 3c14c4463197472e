#pragma once

#include "plat/FileDescriptor.h"

namespace io {

class FdManager;

// Something that owns or watches a descriptor. Its descriptor is watched once it is registered with
// an FdManager; destroying it unregisters it, which is safe at any moment, also inside its own
// callback or another handler's.
class FdHandler {
 public:
  FdHandler() = default;
  // Watches the descriptor without owning it.
  explicit FdHandler(int fd) : fd_(fd) {}
  explicit FdHandler(plat::FileDescriptor fd) : fd_(fd.release()), ownsFd_(true) {}
  virtual ~FdHandler();
  FdHandler(const FdHandler&) = delete;
  FdHandler& operator=(const FdHandler&) = delete;

  // The descriptor is readable, at its end, or in an exceptional condition.
  virtual void readReady() {}
  virtual void writeReady() {}
  // The manager is about to go; the handler is not registered any more.
  virtual void managerGone() {}
  // Comes on the turn after FdManager::defer().
  virtual void deferredCall() {}
  // For log lines.
  virtual const char* handlerName() const { return "FdHandler"; }

  int fd() const { return fd_; }
  bool ownsFd() const { return ownsFd_; }
  bool isRegistered() const { return manager_ != nullptr; }

 protected:
  // Closes the descriptor that is held, if it is owned. The registration stays.
  void setFd(int fd);
  void setFd(plat::FileDescriptor fd);

 private:
  friend class FdManager;

  int fd_ = -1;
  bool ownsFd_ = false;
  FdManager* manager_ = nullptr;
};

}  // namespace io
