#pragma once

#include <X11/Xlib.h>

namespace tx {

// Sees every X event, in order of construction, before the window that the event belongs to. No
// handler consumes an event. A handler may be created or destroyed while an event is dispatched: a
// new one starts with the next event, a destroyed one is not called any more. The display must be
// open.
class TXEventHandler {
 public:
  TXEventHandler();
  virtual ~TXEventHandler();
  TXEventHandler(const TXEventHandler&) = delete;
  TXEventHandler& operator=(const TXEventHandler&) = delete;

  virtual void handleEvent(const XEvent& event) = 0;

  // Stops or resumes being called; resuming puts the handler at the end of the order.
  void setHandlesEvents(bool on);

  // Hands one event to all handlers, then to the tx::TXWindow whose id it carries.
  static void dispatch(const XEvent& event);
};

}  // namespace tx
