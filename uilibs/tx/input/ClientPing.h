#pragma once

#include <X11/Xlib.h>

#include <cstdint>

#include "plat/timer/Timer.h"
#include "tx/RootEventMask.h"

namespace tx {

// Asks the client that has the input focus how far it has come with its events: most toolkits
// answer _NET_WM_PING, of the Extended Window Manager Hints, when they get to it among the others.
// Needs no window manager. One lives as long as the display, see TXDisplay::part().
class ClientPing final : private plat::Timer::Callback {
 public:
  // How often to look for an answer.
  static constexpr int kLookMs = 20;

  ClientPing();

  // Asks, unless an answer is awaited. Some round trips.
  void send();
  bool isAwaited() const { return awaited_; }
  // Whether the client that was asked last is known to answer, or not known not to.
  bool isHeard() const { return heard_; }
  // That client has handled all that was sent to it before that time (plat::monotonicTime()).
  int64_t handledUntil() const { return handledUntil_; }

  // Looks at a message while Xlib reads it, so that no request may be made.
  void see(const XClientMessageEvent& message);

 private:
  // plat::Timer::Callback
  void timerCallback(plat::Timer& timer) override;

  plat::Timer timer_;
  // Answers go to the root window.
  RootEventMask mask_;
  Window window_ = None;
  long number_ = 0;
  int64_t sentAt_ = 0;
  int64_t handledUntil_ = 0;
  bool awaited_ = false;
  bool heard_ = false;
};

}  // namespace tx
