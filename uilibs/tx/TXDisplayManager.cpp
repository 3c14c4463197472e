#include "tx/TXDisplayManager.h"

#include <X11/Xlib.h>

#include <algorithm>
#include <chrono>

#include "tx/DisplayLostException.h"
#include "tx/EventPatience.h"
#include "tx/EventSieve.h"
#include "tx/TXEventHandler.h"

namespace tx {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kMaxEvents = 100;
constexpr std::chrono::milliseconds kMaxTime{20};

// Whether Xlib has events that it has read already.
bool isQueued() {
  return TXDisplay::isOpen() && XEventsQueued(TXDisplay::display(), QueuedAlready) > 0;
}

int connectionNumber(std::optional<TXDisplay>& display, const char* name) {
  if (!TXDisplay::isOpen()) display.emplace(name);
  return ConnectionNumber(TXDisplay::display());
}

}  // namespace

TXDisplayManager::TXDisplayManager(const char* displayName)
    : io_(connectionNumber(display_, displayName)) {
  io_.setHandler(this);
}

void TXDisplayManager::inputReady(io::Io&) {
  readable_ = true;
}

void TXDisplayManager::flush() {
  Display* const display = TXDisplay::display();
  const unsigned long last = NextRequest(display) - 1;
  if (last == flushed_) return;
  flushed_ = last;
  if (last != LastKnownRequestProcessed(display)) XFlush(display);
}

int TXDisplayManager::read() {
  Display* const display = TXDisplay::display();
  const unsigned long last = NextRequest(display) - 1;
  // When the last request has been answered, what had arrived by then was read with the answer.
  const bool isAnswered = last == LastKnownRequestProcessed(display);
  if (!readable_ && (last == read_ || isAnswered)) return 0;
  readable_ = false;
  read_ = last;
  return XEventsQueued(display, QueuedAfterReading);
}

bool TXDisplayManager::dispatchPending() {
  if (!TXDisplay::isOpen()) return false;
  try {
    Display* const display = TXDisplay::display();
    const auto end = Clock::now() + kMaxTime;
    sieveEvents();
    flush();
    int left = XEventsQueued(display, QueuedAlready);
    if (left == 0) left = read();
    // Handlers take events out of the queue, too.
    for (left = std::min(left, kMaxEvents); left > 0 && isQueued() && Clock::now() < end; --left) {
      XEvent event;
      XNextEvent(display, &event);
      TXEventHandler::dispatch(event);
    }
    if (TXDisplay::isOpen()) flush();
    io_.setWantsInput(!EventPatience::isThere());
    return isQueued();
  } catch (const DisplayLostException&) {
    return false;
  }
}

}  // namespace tx
