#pragma once

#include <memory>

#include "plat/Deadline.h"
#include "rdr/InStream.h"

namespace rdr {

// Reads a descriptor, which is not owned. The buffer is allocated by the first read and grows up to
// its limit when a caller wants more in one piece.
//
// Errors: EndOfStream "End of IO stream", SystemException "read", BlockException or TimedOut (see
// setWaiting), plat::Exception "InStream overrun: buffer size exceeded" for an item beyond the
// limit.
class FdInStream : public InStream {
 public:
  static constexpr size_t kDefaultMaxBuffer = 64 * 1024;

  explicit FdInStream(int fd, size_t maxBuffer = kDefaultMaxBuffer);

  int fd() const { return fd_; }
  // What happens when bytes are wanted that have not arrived: by default BlockException; waiting
  // streams wait at most timeoutMs (-1 without limit), then TimedOut.
  void setWaiting(bool waiting, int timeoutMs = -1) {
    waiting_ = waiting;
    timeoutMs_ = timeoutMs;
  }

  // Bytes consumed so far.
  uint64_t pos() const { return base_ + static_cast<uint64_t>(ptr_ - buffer_.get()); }
  // Keeps what follows in the buffer, so that reading can be taken back to here, until
  // releaseCheckpoint().
  void checkpoint();
  void releaseCheckpoint() { checkpointed_ = false; }
  // Goes to a position between the checkpoint (without one: the current position) and the end of
  // what is buffered. Throws plat::Exception for any other.
  void setPos(uint64_t pos);

 protected:
  size_t overrun(size_t itemSize, size_t nItems, bool wait) override;

 private:
  void makeRoom(size_t needed);
  // One read; 0 when there is nothing to read yet.
  size_t readSome();
  void waitReadable(const plat::Deadline& deadline);

  int fd_;
  bool waiting_ = false;
  int timeoutMs_ = -1;
  bool descriptorBlocks_ = false;
  size_t maxBuffer_;
  size_t capacity_ = 0;
  std::unique_ptr<uint8_t[]> buffer_;
  uint64_t base_ = 0;  // position of the buffer's first byte
  bool checkpointed_ = false;
  uint64_t checkpoint_ = 0;
};

}  // namespace rdr
