#pragma once

#include <X11/Xlib.h>

namespace bench {

// How long the X server takes to copy the screen into a shared segment that nobody has used before,
// in milliseconds. Most of it goes into the segment's pages, which have to be made.
double msOfFirstCopy(Display* display);

}  // namespace bench
