#pragma once

#include <X11/Xlib.h>

#include <string>

namespace tx {

// "BadWindow (invalid Window parameter), request 3.0, resource 0x400001".
std::string describeXError(Display* display, const XErrorEvent& error);

// The handler underneath all traps: logs the error. Returns 0.
int logXError(Display* display, XErrorEvent* error);

}  // namespace tx
