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

// Scoped trap for X errors. Records the first error among the requests made while it lives; errors
// of earlier requests go to the trap or handler around it. Traps nest and must be left in reverse
// order (asserted). Entering and leaving wait for the server only when requests are outstanding, so
// a trap around requests that end in a round trip costs none of its own.
class ErrorCatcher {
 public:
  // Null: the process's display.
  explicit ErrorCatcher(Display* display = nullptr);
  ~ErrorCatcher();
  ErrorCatcher(const ErrorCatcher&) = delete;
  ErrorCatcher& operator=(const ErrorCatcher&) = delete;

  // Waits for outstanding requests, then says whether one has failed.
  bool failed();
  // The first error recorded so far, without waiting.
  const std::optional<XErrorEvent>& error() const { return error_; }
  // Waits as failed() does; throws XErrorException "<what>: <error text>" for the first error.
  void check(const char* what);
  // Forgets a recorded error.
  void clear();

  // Installs the process-wide handler underneath all traps: it logs the error and returns.
  static void installDefaultHandler();
  // "BadWindow (invalid Window parameter), request 3.0, resource 0x400001".
  static std::string describe(Display* display, const XErrorEvent& error);

 private:
  static int handle(Display* display, XErrorEvent* error);
  void sync();

  Display* display_;
  ErrorCatcher* outer_;
  XErrorHandler outerHandler_;
  std::optional<XErrorEvent> error_;
};

}  // namespace tx
