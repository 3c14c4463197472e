#include "tx/XErrorLog.h"

#include "plat/Exception.h"
#include "plat/log/LogSrc.h"

namespace tx {

namespace {

plat::LogSrc vlog("ErrorCatcher");

}  // namespace

std::string describeXError(Display* display, const XErrorEvent& error) {
  char text[128] = "";
  XGetErrorText(display, error.error_code, text, sizeof text);
  char request[64] = "";
  // Only core requests have their names under their number.
  if (error.request_code < 128) {
    XGetErrorDatabaseText(display, "XRequest", std::to_string(error.request_code).c_str(), "",
                          request, sizeof request);
  }
  return plat::format("%s, request %d.%d%s%s%s, resource 0x%lx", text, int{error.request_code},
                      int{error.minor_code}, *request ? " (" : "", request, *request ? ")" : "",
                      static_cast<unsigned long>(error.resourceid));
}

int logXError(Display* display, XErrorEvent* error) {
  vlog.error("X error: %s", describeXError(display, *error).c_str());
  return 0;
}

}  // namespace tx
