#include "io/FdIo.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <utility>

#include "io/FdManager.h"
#include "plat/Deadline.h"

namespace io {

FdIo::FdIo(int fd) : FdHandler(fd), in_(fd, kMaxInput), out_(fd, this), timer_(this) {
  plat::FileDescriptor::setNonBlocking(fd);
}

FdIo::FdIo(plat::FileDescriptor fd)
    : FdHandler(std::move(fd)),
      in_(FdHandler::fd(), kMaxInput),
      out_(FdHandler::fd(), this),
      timer_(this) {
  plat::FileDescriptor::setNonBlocking(FdHandler::fd());
}

FdIo::~FdIo() = default;

void FdIo::setHandler(IoHandler* handler) {
  if (handler) FdManager::instance().requirePollable(fd());
  handler_ = handler;
  if (handler_) {
    watch();
  } else {
    timer_.stop();
    if (isRegistered()) FdManager::instance().unregister(*this);
  }
}

void FdIo::setWantsInput(bool wants) {
  if (wantsInput_ == wants) return;
  wantsInput_ = wants;
  if (handler_) watch();
}

void FdIo::defer() {
  if (!handler_) return;
  deferred_ = true;
  FdManager::instance().defer(*this);
}

void FdIo::fail(const plat::Exception& reason) {
  if (failure_) return;
  failure_.emplace(reason);
  if (handler_) FdManager::instance().defer(*this);
}

bool FdIo::wait(int timeoutMs) {
  const plat::Deadline deadline(timeoutMs);
  for (;;) {
    int64_t ms = deadline.msLeft();
    const bool over = ms == 0;
    pollfd entry{fd(), POLLIN, 0};
    if (out_.isBlocked()) {
      entry.events |= POLLOUT;
      ms = ms < 0 ? out_.msUntilTimeout() : std::min(ms, out_.msUntilTimeout());
    }
    const int64_t longest = std::numeric_limits<int>::max();
    const int n = poll(&entry, 1, static_cast<int>(std::min(ms, longest)));
    if (n < 0 && errno != EINTR) throw plat::SystemException("select", errno);
    if (out_.isBlocked()) out_.flush();
    if (n > 0 && (entry.revents & ~POLLOUT) != 0) return true;
    if (over) return false;
  }
}

void FdIo::flush(int timeoutMs) {
  out_.flushAndWait(timeoutMs);
}

void FdIo::readReady() {
  if (handler_) handler_->inputReady(*this);
}

void FdIo::writeReady() {
  if (failure_) return;
  try {
    out_.flush();
  } catch (const plat::Exception&) {
    // writeFailed() has taken note.
  }
}

void FdIo::deferredCall() {
  if (!handler_) return;
  if (failure_) {
    const plat::Exception reason = *failure_;
    handler_->ioFailed(*this, reason);
  } else if (std::exchange(deferred_, false)) {
    // The handler may destroy this object.
    if (unblocked_) FdManager::instance().defer(*this);
    handler_->deferredCall(*this);
  } else if (std::exchange(unblocked_, false)) {
    handler_->outputUnblocked(*this);
  }
}

void FdIo::blockedChanged(rdr::FdOutStream&, bool blocked) {
  if (!handler_) return;
  watch();
  if (blocked) return;
  // Not from here: somebody may be writing.
  unblocked_ = true;
  FdManager::instance().defer(*this);
}

void FdIo::writeFailed(rdr::FdOutStream&, const plat::Exception& reason) {
  fail(reason);
}

void FdIo::timerCallback(plat::Timer&) {
  writeReady();
  if (handler_ && out_.isBlocked()) watch();
}

void FdIo::watch() {
  const bool blocked = out_.isBlocked();
  FdManager::instance().setWants(*this, wantsInput_, blocked);
  if (blocked) {
    const int64_t longest = std::numeric_limits<int>::max();
    timer_.start(static_cast<int>(std::min(out_.msUntilTimeout(), longest)));
  } else {
    timer_.stop();
  }
}

}  // namespace io
