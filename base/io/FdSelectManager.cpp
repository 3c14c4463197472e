#include "io/FdSelectManager.h"

#include <sys/select.h>

#include <algorithm>
#include <cerrno>

#include "plat/Exception.h"

namespace io {

namespace {

bool isPollable(const FdHandler& handler) {
  return handler.fd() >= 0 && handler.fd() < FD_SETSIZE;
}

class FdSet {
 public:
  FdSet() { clear(); }
  void clear() { FD_ZERO(&set_); }
  void add(int fd) { FD_SET(fd, &set_); }
  bool contains(int fd) const { return FD_ISSET(fd, &set_); }
  fd_set* get() { return &set_; }

 private:
  fd_set set_;
};

}  // namespace

FdSelectManager::FdSelectManager(bool nested) : FdManager(nested) {}

FdSelectManager::~FdSelectManager() {
  unregisterAll();
}

void FdSelectManager::checkPollable(int fd) {
  if (fd < FD_SETSIZE) return;
  throw plat::Exception("Descriptor %d is too large to wait for (limit %d)", fd, FD_SETSIZE - 1);
}

bool FdSelectManager::wait(int timeoutMs) {
  FdSet readable;
  FdSet writable;
  FdSet exceptional;
  int limit = 0;
  const auto fill = [&limit](const HandlerSet& wants, FdSet& set) {
    for (const FdHandler* handler : wants.handlers()) {
      if (!isPollable(*handler)) continue;
      set.add(handler->fd());
      limit = std::max(limit, handler->fd() + 1);
    }
  };
  fill(wantsRead_, readable);
  fill(wantsWrite_, writable);
  fill(wantsExceptions_, exceptional);

  timeval timeout;
  timeout.tv_sec = timeoutMs / 1000;
  timeout.tv_usec = (timeoutMs % 1000) * 1000;

  int ready = select(limit, readable.get(), writable.get(), exceptional.get(),
                     timeoutMs < 0 ? nullptr : &timeout);
  if (ready < 0) {
    if (errno != EINTR) throw plat::SystemException("select", errno);
    ready = 0;
  }

  if (ready > 0) {
    for (FdHandler* handler : registered_) {
      if (!isPollable(*handler)) continue;
      const int fd = handler->fd();
      // Two handlers may share a descriptor and wait for different things.
      if ((readable.contains(fd) && wantsRead_.contains(*handler)) ||
          (exceptional.contains(fd) && wantsExceptions_.contains(*handler))) {
        readReady_.insert(*handler);
      }
      if (writable.contains(fd) && wantsWrite_.contains(*handler)) writeReady_.insert(*handler);
    }
  }

  return ready > 0;
}

void FdSelectManager::interestChanged(FdHandler& handler, bool read, bool write, bool exceptions) {
  const auto update = [&handler](HandlerSet& set, bool wanted) {
    if (wanted) {
      set.insert(handler);
    } else {
      set.erase(handler);
    }
  };
  update(wantsRead_, read);
  update(wantsWrite_, write);
  update(wantsExceptions_, exceptions);
}

}  // namespace io
