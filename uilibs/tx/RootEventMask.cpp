#include "tx/RootEventMask.h"

#include <algorithm>
#include <vector>

#include "tx/TXDisplay.h"

namespace tx {

namespace {

// What all parts of the process ask for.
struct RootEvents {
  std::vector<const RootEventMask*> requests;
  long selected = 0;

  void select() {
    long mask = 0;
    for (const RootEventMask* request : requests) mask |= request->mask();
    if (mask == selected) return;
    selected = mask;
    TXDisplay::attempt([mask] { XSelectInput(TXDisplay::display(), TXDisplay::root(), mask); });
  }
};

}  // namespace

RootEventMask::RootEventMask(long mask) : mask_(mask) {
  RootEvents& events = TXDisplay::part<RootEvents>();
  events.requests.push_back(this);
  events.select();
}

RootEventMask::~RootEventMask() {
  if (!TXDisplay::current()) return;
  RootEvents& events = TXDisplay::part<RootEvents>();
  std::erase(events.requests, this);
  events.select();
}

void RootEventMask::set(long mask) {
  mask_ = mask;
  if (TXDisplay::current()) TXDisplay::part<RootEvents>().select();
}

}  // namespace tx
