#include "svr/input/PointerWatch.h"

#include <climits>

#include "plat/Time.h"
#include "plat/config/IntParameter.h"
#include "tx/TXDisplay.h"

namespace svr {

namespace {

plat::IntParameter pollCursorTime("PollCursorTime", plat::MessageId{"svr_param_pollcursortime"},
                                  100, 0, INT_MAX);

// After this time without motion the pointer is left to the alarm, which is for rests of more than
// the other.
constexpr int kStillMs = 1500;
constexpr int kRestMs = 1000;

}  // namespace

PointerWatch::PointerWatch(SPointerX11Callback* callback) : callback_(callback), last_(position()) {
  pollCursorTime.addCallback(this);
}

PointerWatch::~PointerWatch() {
  pollCursorTime.removeCallback(this);
}

rfb::Point PointerWatch::position() {
  Window root, child;
  int rootX = 0, rootY = 0, x, y;
  unsigned mask;
  XQueryPointer(tx::TXDisplay::display(), tx::TXDisplay::root(), &root, &child, &rootX, &rootY, &x,
                &y, &mask);
  return {rootX, rootY};
}

void PointerWatch::setOn(bool on) {
  on_ = on;
  timer_.stop();
  alarm_.stop();
  resting_ = false;
  if (on) start();
}

void PointerWatch::start() {
  if (pollCursorTime.value() <= 0) return;
  timer_.start(pollCursorTime.value());
  last_ = position();
  lastMove_ = plat::monotonicTime();
  alarm_.start(kRestMs);
}

void PointerWatch::paramChanged(plat::ConfigParameter*, int) {
  // What runs takes the new time when it is over.
  if (on_ && !timer_.isRunning() && !resting_) start();
}

void PointerWatch::injected(const rfb::Point& position) {
  if (position == last_) return;
  last_ = position;
  moved_ = true;
  wake();
}

void PointerWatch::wake() {
  if (!resting_) return;
  resting_ = false;
  lastMove_ = plat::monotonicTime();
  // No later than asking would have shown it.
  if (pollCursorTime.value() > 0) timer_.start(0);
}

void PointerWatch::timerCallback(plat::Timer&) {
  // Switched off by parameter meanwhile.
  if (pollCursorTime.value() <= 0) return;
  timer_.start(pollCursorTime.value());
  look();
}

void PointerWatch::pointerUsed() {
  wake();
}

void PointerWatch::look() {
  if (!tx::TXDisplay::isOpen()) return;
  const rfb::Point now = position();
  // The display may have been lost over it.
  if (!tx::TXDisplay::isOpen()) return;
  if (now != last_) {
    last_ = now;
    moved_ = true;
    callback_->pointerMoved();
  }
  if (moved_) {
    moved_ = false;
    lastMove_ = plat::monotonicTime();
    callback_->pointerPosition(last_.x, last_.y);
  } else if (plat::monotonicTime() - lastMove_ >= kStillMs * plat::kTicksPerMs) {
    tryResting();
  }
}

void PointerWatch::tryResting() {
  lastMove_ = plat::monotonicTime();
  // Buttons count as use, too. What the alarm missed until then shows in the position.
  if (!alarm_.isSet() || position() != last_) return;
  resting_ = true;
  timer_.stop();
}

}  // namespace svr
