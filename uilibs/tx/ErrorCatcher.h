#pragma once

#include <X11/Xlib.h>

#include <optional>
#include <string>

#include "plat/Exception.h"

namespace tx {

// An error that the X server reported for a request made inside a tx::ErrorCatcher.
class XErrorException : public plat::Exception {
 public:
  XErrorException(const std::string& what, const XErrorEvent& error);
  int errorCode() const { return errorCode_; }
  int requestCode() const { return requestCode_; }

 private:
  int errorCode_;
  int requestCode_;
};

// Scoped trap for X errors of the process's display. The errors of requests made while it lives are
// its own, whenever they arrive: they are told apart by the requests' numbers, so that neither
// entering nor leaving waits for the server. The first one is recorded; those that arrive after the
// trap has gone are dropped. Traps nest and must be left in reverse order (asserted).
class ErrorCatcher {
 public:
  ErrorCatcher();
  ~ErrorCatcher();
  ErrorCatcher(const ErrorCatcher&) = delete;
  ErrorCatcher& operator=(const ErrorCatcher&) = delete;

  // Waits for the requests that have been made inside, then says whether one has failed.
  bool failed();
  // The first error recorded so far, without waiting.
  const std::optional<XErrorEvent>& error() const { return error_; }
  // Waits as failed() does; throws XErrorException "<what>: <error text>" for the first error.
  void check(const char* what);

 private:
  friend class ErrorTraps;

  const unsigned long begin_;  // the number of the first request inside
  std::optional<XErrorEvent> error_;
};

}  // namespace tx
