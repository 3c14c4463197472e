#pragma once

#include "io/FdIo.h"
#include "io/Io.h"

namespace host {

// A connected endpoint that no loop knows: its owner waits for what it says, then gives it a turn.
class ManualIo : public io::Io {
 public:
  // Throws SystemException.
  explicit ManualIo(plat::FileDescriptor fd) : io_(std::move(fd)) {}

  int fd() const { return io_.fd(); }
  // The events of poll() that it waits for.
  short events() const;
  // Milliseconds until there is something to do without an event; -1 for never.
  int msUntilNext();
  // Waits at most timeoutMs (-1 without limit), writes what was left behind and tells the handler
  // what there is. A signal that is handled ends the wait. The object may be gone after this.
  void turn(int timeoutMs);

  rdr::InStream& inStream() override { return io_.inStream(); }
  rdr::OutStream& outStream() override { return io_.outStream(); }
  void setHandler(io::IoHandler* handler) override { handler_ = handler; }
  void defer() override { deferred_ = true; }
  void fail(const plat::Exception& reason) override { io_.fail(reason); }
  const plat::Exception* failure() const override { return io_.failure(); }
  bool isBlocked() const override { return io_.isBlocked(); }
  bool wait(int timeoutMs) override { return io_.wait(timeoutMs); }
  void flush(int timeoutMs) override { io_.flush(timeoutMs); }

 private:
  io::FdIo io_;
  io::IoHandler* handler_ = nullptr;
  bool deferred_ = false;
};

}  // namespace host
