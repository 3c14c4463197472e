#include "tx/ResourceIds.h"

// After all others: it defines macros that the standard library does not stand.
#include <X11/Xlibint.h>

namespace tx {

namespace {

using Allocate = XID (*)(Display*);

Allocate allocate = nullptr;  // Xlib's own

XID allocateIfAlive(Display* display) {
  // Notices a broken connection without a round trip; the display is locked here.
  _XEventsQueued(display, QueuedAfterReading);
  return (display->flags & XlibDisplayIOError) != 0 ? None : allocate(display);
}

}  // namespace

void guardResourceIds(Display* display) {
  allocate = display->resource_alloc;
  display->resource_alloc = allocateIfAlive;
}

}  // namespace tx
