#include "tx/EventSieve.h"

#include "tx/TXDisplay.h"
#include "tx/TXWindow.h"
#include "tx/input/ClientPing.h"

// After all others: it defines macros that the standard library does not stand.
#include <X11/Xlibint.h>

namespace tx {

namespace {

using Convert = Bool (*)(Display*, XEvent*, xEvent*);

constexpr int kSent = 0x80;  // the bit of the type of events that clients have sent

// Makes Xlib's form of an event; called while Xlib reads, so that no request may be made. False
// keeps the event out of the queue.
Bool convert(Display* display, XEvent* event, xEvent* wire);

class Sieve {
 public:
  // What events are shown to outlives the sieve.
  Sieve() { TXDisplay::part<ClientPing>(); }
  // Xlib goes on reading until the connection is closed.
  ~Sieve() {
    Convert* const current = TXDisplay::display()->event_vec;
    for (int type = 0; type < kSent; ++type) {
      if (current[type] == convert) current[type] = former_[type];
    }
  }
  Sieve(const Sieve&) = delete;
  Sieve& operator=(const Sieve&) = delete;

  void cover(Display* display) {
    for (int type = KeyPress; type < kSent; ++type) {
      Convert& current = display->event_vec[type];
      if (current == convert) continue;
      former_[type] = current;
      current = convert;
    }
  }
  Convert former(int type) const { return former_[type]; }

 private:
  Convert former_[kSent] = {};
};

// What comes along with the answers to a ClientPing.
bool isAboutChildOfRoot(const XEvent& event) {
  // All of these have the two windows in the same places.
  return event.type >= CreateNotify && event.type <= CirculateNotify &&
         event.xconfigure.event == TXDisplay::root() &&
         event.xconfigure.window != TXDisplay::root();
}

Bool convert(Display* display, XEvent* event, xEvent* wire) {
  const int type = wire->u.u.type & (kSent - 1);
  // Any client can send any event, but only these are sent by clients when all is well.
  const bool isSent = (wire->u.u.type & kSent) != 0;
  if (isSent && type != SelectionNotify && type != ClientMessage) return xFalse;
  if (!TXDisplay::part<Sieve>().former(type)(display, event, wire)) return xFalse;
  if (type == ClientMessage) {
    TXDisplay::part<ClientPing>().see(event->xclient);
    return xFalse;
  }
  if (isAboutChildOfRoot(*event)) return xFalse;
  TXWindow* const window = TXWindow::find(event->xany.window);
  return !window || window->wants(*event);
}

}  // namespace

void sieveEvents() {
  TXDisplay::part<Sieve>().cover(TXDisplay::display());
}

}  // namespace tx
