#pragma once

namespace tx {

// Lets the loop sleep through a burst of events. The X server reports each of many small changes by
// an event of its own, of which all but the first say nothing new until a timer that is due soon:
// while somebody says so, the loop does not wake for events. They are handled when it wakes for
// something else.
class EventPatience {
 public:
  // Asked before every wait, on the thread of the display, which must be open.
  static bool isThere();

 protected:
  EventPatience() = default;
  ~EventPatience();
  EventPatience(const EventPatience&) = delete;
  EventPatience& operator=(const EventPatience&) = delete;

  // One at a time is asked.
  void askMe(bool on);
  // Whether a timer is due within a few milliseconds.
  virtual bool canEventsWait() const = 0;
};

}  // namespace tx
