#include "tx/RootEventMask.h"

#include <algorithm>
#include <vector>

#include "tx/TXDisplay.h"

namespace tx {

namespace {

struct Owner {
  std::vector<const RootEventMask*> requests;
  long selected = 0;
  unsigned generation = 0;

  void select() {
    if (!TXDisplay::isOpen()) return;
    if (generation != TXDisplay::generation()) {
      generation = TXDisplay::generation();
      selected = 0;
    }
    long mask = 0;
    for (const RootEventMask* request : requests) mask |= request->mask();
    if (mask == selected) return;
    selected = mask;
    XSelectInput(TXDisplay::display(), TXDisplay::root(), mask);
  }
};

Owner& owner() {
  static Owner* const instance = new Owner;  // used by destructors of static objects too
  return *instance;
}

}  // namespace

RootEventMask::RootEventMask(long mask) : mask_(mask) {
  owner().requests.push_back(this);
  owner().select();
}

RootEventMask::~RootEventMask() {
  std::erase(owner().requests, this);
  owner().select();
}

void RootEventMask::set(long mask) {
  mask_ = mask;
  owner().select();
}

}  // namespace tx
