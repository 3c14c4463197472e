#pragma once

#include "plat/FileDescriptor.h"

namespace io {

// Something that owns or watches a descriptor. Its descriptor is watched once it is registered with
// an FdManager; destroying it unregisters it, which is safe at any moment, also inside its own
// callback or another handler's.
class FdHandler {
 public:
  // What handlers are registered with.
  class Registry {
   public:
    // Harmless for a handler that is not registered here. Nothing is called on it afterwards.
    virtual void unregister(FdHandler& handler) = 0;

   protected:
    ~Registry() = default;

   private:
    friend class FdHandler;

    // What is known of its descriptor does not hold any more.
    virtual void dropReadiness(FdHandler& handler) = 0;
  };

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
  // Comes on the turn after FdManager::defer().
  virtual void deferredCall() {}

  int fd() const { return fd_; }
  bool ownsFd() const { return ownsFd_; }
  bool isRegistered() const { return registry_ != nullptr; }

 protected:
  // Closes the descriptor that is held, if it is owned. The registration stays.
  void setFd(int fd);
  void setFd(plat::FileDescriptor fd);

 private:
  friend class FdManager;

  int fd_ = -1;
  bool ownsFd_ = false;
  Registry* registry_ = nullptr;
};

}  // namespace io
