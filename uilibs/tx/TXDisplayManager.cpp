#include "tx/TXDisplayManager.h"

#include <X11/Xlib.h>

#include "tx/DisplayLostException.h"
#include "tx/TXDisplay.h"
#include "tx/TXEventHandler.h"

namespace tx {

namespace {

bool open(const char* displayName) {
  if (TXDisplay::isOpen()) return false;
  TXDisplay::open(displayName);
  return true;
}

}  // namespace

TXDisplayManager::TXDisplayManager(const char* displayName) : opened_(open(displayName)) {
  try {
    io_ = std::make_unique<io::FdIo>(ConnectionNumber(TXDisplay::display()));
    io_->setHandler(this);
  } catch (...) {
    if (opened_) TXDisplay::close();
    throw;
  }
}

TXDisplayManager::~TXDisplayManager() {
  io_.reset();
  if (opened_) TXDisplay::close();
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
