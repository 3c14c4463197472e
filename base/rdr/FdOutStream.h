#pragma once

#include <memory>

#include "plat/Exception.h"
#include "rdr/OutStream.h"

namespace rdr {

// Writes a descriptor, which is not owned, and never waits for it: a flush writes what the
// descriptor takes, the rest stays buffered for the next one. The parameters `MaxOutBufferSize`
// (the bytes kept) and `LazyFlushTimeout` (how long the peer may take nothing) are read at each
// use.
//
// Errors: SystemException "write", OutStreamFull, TimedOut. After one the stream has failed: what
// it held is dropped and further writing throws OutStreamFull.
class FdOutStream : public OutStream {
 public:
  class Callback {
   public:
    // A flush left bytes behind, or bytes left behind have now been written.
    virtual void blockedChanged(FdOutStream& out, bool blocked) = 0;
    // The stream has failed; the exception is thrown to its user when this returns.
    virtual void writeFailed(FdOutStream& out, const plat::Exception& reason) = 0;

   protected:
    ~Callback() = default;
  };

  // The callback may be null; it is not owned.
  explicit FdOutStream(int fd, Callback* callback = nullptr);

  int fd() const { return fd_; }
  // Bytes that the descriptor has not taken, the current span included.
  size_t pending() const { return static_cast<size_t>(ptr_ - sent_); }
  // Whether a flush left bytes behind.
  bool isBlocked() const { return blocked_; }
  bool hasFailed() const { return failed_; }
  // Milliseconds until the peer counts as unresponsive (it may be more than an int's), -1 when
  // nothing waits.
  int64_t msUntilTimeout() const;

  uint64_t length() const override { return written_ + pending(); }
  void flush() override;
  // Flushes, waiting for the descriptor; throws TimedOut after timeoutMs (-1: only as flush does).
  void flushAndWait(int timeoutMs);

 protected:
  size_t overrun(size_t itemSize, size_t nItems) override;

 private:
  void writeSome();
  void makeRoom(size_t needed);
  void setBlocked(bool blocked);
  template <typename Reason>
  [[noreturn]] void fail(const Reason& reason);
  size_t size() const { return static_cast<size_t>(end_ - buffer_.get()); }

  int fd_;
  Callback* callback_;
  bool isSocket_ = true;  // until told otherwise
  bool blocked_ = false;
  bool failed_ = false;
  int64_t blockedSince_ = 0;
  uint64_t written_ = 0;
  std::unique_ptr<uint8_t[]> buffer_;
  uint8_t* sent_ = nullptr;  // the first byte not yet written
};

}  // namespace rdr
