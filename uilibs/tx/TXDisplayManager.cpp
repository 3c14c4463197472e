#include "tx/TXDisplayManager.h"

#include <X11/Xlib.h>

#include "tx/DisplayLostException.h"
#include "tx/TXEventHandler.h"

namespace tx {

namespace {

int connectionNumber(std::optional<TXDisplay>& display, const char* name) {
  if (!TXDisplay::isOpen()) display.emplace(name);
  return ConnectionNumber(TXDisplay::display());
}

}  // namespace

TXDisplayManager::TXDisplayManager(const char* displayName)
    : io_(connectionNumber(display_, displayName)) {
  io_.setHandler(this);
}

bool TXDisplayManager::dispatchPending() {
  if (!TXDisplay::isOpen()) return false;
  try {
    Display* const display = TXDisplay::display();
    for (int left = XPending(display); left > 0; --left) {
      // Handlers take events out of the queue, too.
      if (!TXDisplay::isOpen() || XEventsQueued(display, QueuedAlready) == 0) return false;
      XEvent event;
      XNextEvent(display, &event);
      TXEventHandler::dispatch(event);
    }
    return TXDisplay::isOpen() && XPending(display) > 0 && TXDisplay::isOpen();
  } catch (const DisplayLostException&) {
    return false;
  }
}

}  // namespace tx
