#pragma once

#include "plat/Exception.h"
#include "rdr/InStream.h"
#include "rdr/OutStream.h"

namespace io {

class IoHandler;

// A connected, bidirectional endpoint of bytes. Its streams never wait. With a handler it is driven
// by the thread's FdManager; without one by wait().
class Io {
 public:
  virtual ~Io() = default;
  Io(const Io&) = delete;
  Io& operator=(const Io&) = delete;

  virtual rdr::InStream& inStream() = 0;
  virtual rdr::OutStream& outStream() = 0;

  // Registers with the loop (null: unregisters). The handler is not owned.
  virtual void setHandler(IoHandler* handler) = 0;
  // Has the handler called on the loop's next turn.
  virtual void defer() = 0;

  // Marks the endpoint as unusable; the handler is told on the loop's next turn, never from within
  // this call. The first reason stays. Failures of the output stream do the same.
  virtual void fail(const plat::Exception& reason) = 0;
  // The reason, null while the endpoint is usable.
  virtual const plat::Exception* failure() const = 0;
  // Whether the peer takes no more output for now; what is written is kept.
  virtual bool isBlocked() const { return false; }

  // Waits at most timeoutMs (-1 without limit) for input, writing pending output meanwhile. Returns
  // whether there is input (or the peer has closed). Throws what writing throws.
  virtual bool wait(int timeoutMs) = 0;
  // Waits until pending output is written; throws rdr::TimedOut after timeoutMs (-1 without limit
  // but the stream's own).
  virtual void flush(int timeoutMs) = 0;

 protected:
  Io() = default;
};

}  // namespace io
