#pragma once

#include "plat/Exception.h"

namespace io {

class Io;

// What the loop tells the user of an endpoint. Each of these may destroy the endpoint.
class IoHandler {
 public:
  virtual ~IoHandler() = default;

  // There is input, or the peer has closed.
  virtual void inputReady(Io&) {}
  // The endpoint has failed: output that was left behind could not be written, or fail() was called
  // on an earlier turn.
  virtual void ioFailed(Io&, const plat::Exception& /*reason*/) {}
  // Asked for with Io::defer() on an earlier turn.
  virtual void deferredCall(Io&) {}
  // All output that the peer had left behind was written, on this turn or an earlier one.
  virtual void outputUnblocked(Io&) {}
};

}  // namespace io
