#pragma once

#include <X11/Xlib.h>

namespace tx {

// Xlib ends the process when it needs an id for a new resource and the connection has broken
// without its notice; from now on it looks first, and the call that makes the resource fails as any
// other on a lost display does.
void guardResourceIds(Display* display);

}  // namespace tx
