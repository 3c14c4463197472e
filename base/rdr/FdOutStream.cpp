#include "rdr/FdOutStream.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <new>

#include "plat/Deadline.h"
#include "plat/Time.h"
#include "plat/config/IntParameter.h"
#include "rdr/Exceptions.h"

namespace rdr {

namespace {

plat::IntParameter maxOutBufferSize(
    "MaxOutBufferSize",
    "The maximum number of bytes to buffer internally when writing to slow connections.  Larger "
    "values improve concurrency, smaller values reduce memory usage.  Changes to this setting "
    "affect new connections only.",
    134217728, 16384, std::numeric_limits<int32_t>::max(), true);
plat::IntParameter lazyFlushTimeout(
    "LazyFlushTimeout",
    "Maximum number of seconds for which attempts should be made to flush data to an unresponsive "
    "client (maximum 49 days)",
    60, 0, std::numeric_limits<int32_t>::max(), true);

constexpr size_t kInitialSize = 64 * 1024;
// A buffer that had to grow beyond this is given back when it is empty.
constexpr size_t kKeptSize = 1024 * 1024;

int64_t timeoutTicks() {
  return lazyFlushTimeout.value() * plat::kTicksPerSecond;
}

}  // namespace

template <typename Reason>
void FdOutStream::fail(const Reason& reason) {
  failed_ = true;
  buffer_.reset();
  ptr_ = end_ = sent_ = nullptr;
  setBlocked(false);
  if (callback_) callback_->writeFailed(*this, reason);
  throw reason;
}

FdOutStream::FdOutStream(int fd, Callback* callback) : fd_(fd), callback_(callback) {}

int64_t FdOutStream::msUntilTimeout() const {
  if (!blocked_) return -1;
  return plat::msRoundedUp(blockedSince_ + timeoutTicks() - plat::monotonicTime());
}

void FdOutStream::flush() {
  if (failed_) throw OutStreamFull::unableToWrite();
  if (pending() > 0) writeSome();
}

void FdOutStream::flushAndWait(int timeoutMs) {
  const plat::Deadline deadline(timeoutMs);
  for (flush(); blocked_; flush()) {
    const int left = deadline.msLeft();
    if (left == 0) throw TimedOut();
    const int64_t longest = left < 0 ? std::numeric_limits<int>::max() : left;
    const int64_t ms = std::min(msUntilTimeout(), longest);
    pollfd entry{fd_, POLLOUT, 0};
    if (poll(&entry, 1, static_cast<int>(ms)) < 0 && errno != EINTR) {
      throw plat::SystemException("select", errno);
    }
  }
}

void FdOutStream::writeSome() {
  bool progress = false;
  while (pending() > 0) {
    const ssize_t n =
        isSocket_ ? send(fd_, sent_, pending(), MSG_NOSIGNAL) : write(fd_, sent_, pending());
    if (n < 0) {
      if (errno == EINTR) continue;
      if (errno == ENOTSOCK && isSocket_) {
        isSocket_ = false;
        continue;
      }
      if (errno == EAGAIN || errno == EWOULDBLOCK) break;
      fail(plat::SystemException("write", errno));
    }
    progress = progress || n > 0;
    sent_ += n;
    written_ += static_cast<uint64_t>(n);
    // A descriptor that took a part has no room for more.
    if (pending() > 0) break;
  }

  if (pending() == 0) {
    if (size() > kKeptSize) {
      buffer_.reset();
      end_ = nullptr;
    }
    ptr_ = sent_ = buffer_.get();
    setBlocked(false);
    return;
  }
  const int64_t now = plat::monotonicTime();
  if (progress || !blocked_) {
    blockedSince_ = now;
  } else if (now - blockedSince_ >= timeoutTicks()) {
    fail(TimedOut());
  }
  if (pending() > static_cast<size_t>(maxOutBufferSize.value())) {
    fail(OutStreamFull::sizeExceeded());
  }
  setBlocked(true);
}

size_t FdOutStream::overrun(size_t itemSize, size_t nItems) {
  if (failed_) throw OutStreamFull::unableToWrite();
  if (pending() > 0) writeSome();
  if (space() < itemSize) makeRoom(itemSize);
  return std::min(nItems, space() / itemSize);
}

void FdOutStream::makeRoom(size_t needed) {
  const size_t held = pending();
  if (size() >= held + needed && held <= size() / 2) {
    if (held > 0) std::memmove(buffer_.get(), sent_, held);
  } else {
    // At most the limit is held, so this stays within it, apart from room for a frame.
    const uint64_t limit = static_cast<uint64_t>(maxOutBufferSize.value()) + kInitialSize;
    const uint64_t larger = std::max({std::min<uint64_t>(2 * uint64_t{size()}, limit),
                                      uint64_t{kInitialSize}, uint64_t{held} + needed});
    std::unique_ptr<uint8_t[]> buffer;
    try {
      if (larger > std::numeric_limits<size_t>::max() / 2) throw std::bad_alloc();
      buffer = std::make_unique_for_overwrite<uint8_t[]>(static_cast<size_t>(larger));
    } catch (const std::bad_alloc&) {
      fail(OutStreamFull::sizeExceeded());
    }
    if (held > 0) std::memcpy(buffer.get(), sent_, held);
    buffer_ = std::move(buffer);
    end_ = buffer_.get() + larger;
  }
  sent_ = buffer_.get();
  ptr_ = sent_ + held;
}

void FdOutStream::setBlocked(bool blocked) {
  if (blocked_ == blocked) return;
  blocked_ = blocked;
  if (callback_) callback_->blockedChanged(*this, blocked);
}

}  // namespace rdr
