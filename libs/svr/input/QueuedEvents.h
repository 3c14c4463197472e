#pragma once

#include <X11/Xlib.h>

#include <functional>

namespace svr {

// Reads the events that have arrived and shows all that wait, in their order, for those who cannot
// wait until they are dispatched. None is taken and nothing is flushed, as Xlib's own ways would.
// The function must not take events.
void showQueuedEvents(Display* display, const std::function<void(const XEvent&)>& show);

}  // namespace svr
