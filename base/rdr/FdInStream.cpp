#include "rdr/FdInStream.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "rdr/Exceptions.h"

namespace rdr {

namespace {

constexpr size_t kInitialCapacity = 32 * 1024;

bool isReadable(int fd, int timeoutMs) {
  pollfd entry{fd, POLLIN, 0};
  for (;;) {
    const int n = poll(&entry, 1, timeoutMs);
    if (n >= 0) return n > 0;
    if (errno != EINTR) throw plat::SystemException("select", errno);
    if (timeoutMs > 0) return false;  // the caller knows what time is left
  }
}

}  // namespace

FdInStream::FdInStream(int fd, size_t maxBuffer) : fd_(fd), maxBuffer_(maxBuffer) {}

void FdInStream::checkpoint() {
  checkpointed_ = true;
  checkpoint_ = pos();
}

void FdInStream::setPos(uint64_t pos) {
  if (pos < (checkpointed_ ? checkpoint_ : this->pos())) {
    throw plat::Exception("Can't reposition before checkpoint");
  }
  if (pos > this->pos() + available()) throw plat::Exception("Can't reposition beyond the end");
  ptr_ = buffer_.get() + (pos - base_);
}

size_t FdInStream::overrun(size_t itemSize, size_t nItems, bool wait) {
  makeRoom(itemSize);
  const plat::Deadline deadline(wait && waiting_ ? timeoutMs_ : -1);
  for (;;) {
    const bool got = readSome() > 0;
    if (available() >= itemSize) return std::min(nItems, available() / itemSize);
    if (!wait) return 0;
    if (got) continue;
    if (!waiting_) throw BlockException();
    waitReadable(deadline);
  }
}

void FdInStream::makeRoom(size_t needed) {
  const size_t keep = checkpointed_ ? static_cast<size_t>(pos() - checkpoint_) : 0;
  if (needed > maxBuffer_ || keep > maxBuffer_ - needed) {
    throw plat::Exception("InStream overrun: buffer size exceeded");
  }

  size_t offset = capacity_ == 0 ? 0 : static_cast<size_t>(ptr_ - buffer_.get()) - keep;
  const size_t held = keep + available();
  // With little room at the end a read would bring little: make use of the room in front, and if
  // that is little as well, of more memory.
  const auto isTight = [&] {
    const size_t room = capacity_ - offset - held;
    return capacity_ < offset + keep + needed || room < capacity_ / 4;
  };
  if (offset > 0 && (held == 0 || isTight())) {
    std::memmove(buffer_.get(), buffer_.get() + offset, held);
    // What has been read may be secret.
    std::memset(buffer_.get() + held, 0, offset);
    base_ += offset;
    offset = 0;
  }
  if (capacity_ == 0 || (isTight() && capacity_ < maxBuffer_)) {
    const size_t larger =
        std::min(maxBuffer_, std::max({kInitialCapacity, 2 * capacity_, keep + needed}));
    if (capacity_ == 0) {
      const int flags = fcntl(fd_, F_GETFL);
      descriptorBlocks_ = flags >= 0 && (flags & O_NONBLOCK) == 0;
    }
    auto buffer = std::make_unique_for_overwrite<uint8_t[]>(larger);
    if (held > 0) std::memcpy(buffer.get(), buffer_.get() + offset, held);
    buffer_ = std::move(buffer);
    base_ += offset;
    offset = 0;
    capacity_ = larger;
  }
  ptr_ = buffer_.get() + offset + keep;
  end_ = buffer_.get() + offset + held;
}

size_t FdInStream::readSome() {
  if (descriptorBlocks_ && !isReadable(fd_, 0)) return 0;
  uint8_t* const to = buffer_.get() + (end_ - buffer_.get());
  const size_t room = capacity_ - static_cast<size_t>(to - buffer_.get());
  for (;;) {
    const ssize_t n = read(fd_, to, room);
    if (n > 0) {
      end_ += n;
      return static_cast<size_t>(n);
    }
    if (n == 0) throw EndOfStream();
    if (errno == EAGAIN || errno == EWOULDBLOCK) return 0;
    if (errno != EINTR) throw plat::SystemException("read", errno);
  }
}

void FdInStream::waitReadable(const plat::Deadline& deadline) {
  const int ms = deadline.msLeft();
  if (ms == 0) throw TimedOut();
  isReadable(fd_, ms);
}

}  // namespace rdr
