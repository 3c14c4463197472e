#include "tx/ErrorCatcher.h"

#include <string>

#include "plat/Assert.h"
#include "plat/log/LogSrc.h"
#include "tx/TXDisplay.h"

namespace tx {

namespace {

plat::LogSrc vlog("ErrorCatcher");

ErrorCatcher* current = nullptr;

int logError(Display* display, XErrorEvent* error) {
  vlog.error("X error: %s", ErrorCatcher::describe(display, *error).c_str());
  return 0;
}

std::string errorText(Display* display, int code) {
  char text[128] = "";
  XGetErrorText(display, code, text, sizeof text);
  return text;
}

bool isUsable(Display* display) {
  return !TXDisplay::isLost() || display != TXDisplay::display();
}

}  // namespace

XErrorException::XErrorException(const std::string& what, const XErrorEvent& error)
    : plat::Exception(Kind{"XErrorException"},
                      what + ": " + ErrorCatcher::describe(error.display, error)),
      errorCode_(error.error_code),
      requestCode_(error.request_code) {}

void ErrorCatcher::installDefaultHandler() {
  PLAT_ASSERT(current == nullptr);
  XSetErrorHandler(logError);
}

std::string ErrorCatcher::describe(Display* display, const XErrorEvent& error) {
  char request[64] = "";
  // Only core requests have their names under their number.
  if (error.request_code < 128) {
    XGetErrorDatabaseText(display, "XRequest", std::to_string(error.request_code).c_str(), "",
                          request, sizeof request);
  }
  return plat::format("%s, request %d.%d%s%s%s, resource 0x%lx",
                      errorText(display, error.error_code).c_str(), int{error.request_code},
                      int{error.minor_code}, *request ? " (" : "", request, *request ? ")" : "",
                      static_cast<unsigned long>(error.resourceid));
}

ErrorCatcher::ErrorCatcher(Display* display)
    : display_(display != nullptr ? display : TXDisplay::display()), outer_(current) {
  sync();
  outerHandler_ = XSetErrorHandler(handle);
  current = this;
}

ErrorCatcher::~ErrorCatcher() {
  PLAT_ASSERT(current == this);
  sync();
  XSetErrorHandler(outerHandler_);
  current = outer_;
}

void ErrorCatcher::sync() {
  if (!isUsable(display_)) return;
  if (NextRequest(display_) - 1 != LastKnownRequestProcessed(display_)) XSync(display_, False);
}

bool ErrorCatcher::failed() {
  sync();
  return error_.has_value();
}

void ErrorCatcher::check(const char* what) {
  if (failed()) throw XErrorException(what, *error_);
}

void ErrorCatcher::clear() {
  sync();
  error_.reset();
}

// Entering and leaving wait for outstanding requests, so that an error of the trap's display
// belongs to the innermost trap.
int ErrorCatcher::handle(Display* display, XErrorEvent* error) {
  ErrorCatcher* trap = current;
  for (;; trap = trap->outer_) {
    if (trap->display_ == display) {
      if (!trap->error_) trap->error_ = *error;
      return 0;
    }
    if (trap->outer_ == nullptr) return trap->outerHandler_(display, error);
  }
}

}  // namespace tx
