#include "svr/input/QueuedEvents.h"

// After all others: it defines macros that the standard library does not stand.
#include <X11/Xlibint.h>

namespace svr {

void showQueuedEvents(Display* display, const std::function<void(const XEvent&)>& show) {
  // XEventsQueued() does not read while there are any.
  LockDisplay(display);
  _XEventsQueued(display, QueuedAfterReading);
  UnlockDisplay(display);
  for (const _XQEvent* event = display->head; event; event = event->next) show(event->event);
}

}  // namespace svr
