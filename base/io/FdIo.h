#pragma once

#include <optional>

#include "io/FdHandler.h"
#include "io/Io.h"
#include "io/IoHandler.h"
#include "plat/FileDescriptor.h"
#include "plat/timer/Timer.h"
#include "rdr/FdInStream.h"
#include "rdr/FdOutStream.h"

namespace io {

// The endpoint behind one descriptor, such as a connected socket, which it makes non-blocking.
// While output is left behind it waits for the descriptor to become writable, and for the time
// limit.
class FdIo : public Io,
             private FdHandler,
             private rdr::FdOutStream::Callback,
             private plat::Timer::Callback {
 public:
  // Bytes of input that can be held at most.
  static constexpr size_t kMaxInput = 1024 * 1024 + 64 * 1024;

  // Without owning the descriptor. Throws SystemException.
  explicit FdIo(int fd);
  explicit FdIo(plat::FileDescriptor fd);
  ~FdIo() override;

  using FdHandler::fd;

  rdr::FdInStream& inStream() override { return in_; }
  rdr::FdOutStream& outStream() override { return out_; }
  void setHandler(IoHandler* handler) override;
  // Whether the handler is told of input (it is at first).
  void setWantsInput(bool wants);
  void defer() override;
  void fail(const plat::Exception& reason) override;
  const plat::Exception* failure() const override { return failure_ ? &*failure_ : nullptr; }
  bool isBlocked() const override { return out_.isBlocked(); }
  bool wait(int timeoutMs) override;
  void flush(int timeoutMs) override;

 private:
  void readReady() override;
  void writeReady() override;
  void deferredCall() override;
  void blockedChanged(rdr::FdOutStream& out, bool blocked) override;
  void writeFailed(rdr::FdOutStream& out, const plat::Exception& reason) override;
  void timerCallback(plat::Timer& timer) override;

  // Waits for input that is wanted, and for room for pending output.
  void watch();

  rdr::FdInStream in_;
  rdr::FdOutStream out_;
  IoHandler* handler_ = nullptr;
  plat::Timer timer_;
  std::optional<plat::Exception> failure_;
  bool wantsInput_ = true;
  bool deferred_ = false;
  bool unblocked_ = false;  // the handler is to be told
};

}  // namespace io
