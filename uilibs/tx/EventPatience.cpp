#include "tx/EventPatience.h"

#include "tx/TXDisplay.h"

namespace tx {

namespace {

struct Asked {
  const EventPatience* one = nullptr;
};

}  // namespace

EventPatience::~EventPatience() {
  if (TXDisplay::current()) askMe(false);
}

bool EventPatience::isThere() {
  const EventPatience* const one = TXDisplay::part<Asked>().one;
  return one && one->canEventsWait();
}

void EventPatience::askMe(bool on) {
  const EventPatience*& one = TXDisplay::part<Asked>().one;
  if (on) {
    one = this;
  } else if (one == this) {
    one = nullptr;
  }
}

}  // namespace tx
