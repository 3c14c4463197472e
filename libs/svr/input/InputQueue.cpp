#include "svr/input/InputQueue.h"

#include <algorithm>
#include <vector>

#include "plat/Time.h"
#include "plat/log/LogSrc.h"
#include "svr/input/SKeyboardX11.h"
#include "svr/input/SPointerX11.h"

namespace svr {

namespace {

plat::LogSrc vlog("SKeyboardX11");

// From a change of the map until a key that depends on it: slow clients read the map anew, and not
// always in step with the keys.
constexpr int kSettleMs = 30;
// For how long the first event of a burst waits for more of it.
constexpr int64_t kGatherTime = 5 * plat::kTicksPerMs;
// Events that are looked at for symbols, and events that are injected, in one turn of the loop: the
// log of more would not fit into the channel.
constexpr size_t kMaxLookAhead = 4096;
constexpr int kMaxPerTurn = 100;

}  // namespace

InputQueue::InputQueue(SKeyboardX11& keyboard, SPointerX11& pointer)
    : keyboard_(keyboard), pointer_(pointer), timer_(this) {}

void InputQueue::keyEvent(uint32_t keysym, bool down) {
  const Event event{down ? Event::Kind::kPress : Event::Kind::kRelease, keysym, {}};
  if (!events_.empty() || !inject(event)) push(event);
}

void InputQueue::pointerEvent(const rfb::Point& position, uint32_t buttonMask, bool relative) {
  const Event event{relative ? Event::Kind::kOffset : Event::Kind::kPosition, buttonMask, position};
  const bool isMotion = buttonMask == buttonMask_;
  buttonMask_ = buttonMask;
  if (events_.empty() || (isMotion && pointerEventsWaiting_ == 0)) {
    inject(event);
    return;
  }
  ++pointerEventsWaiting_;
  push(event);
}

void InputQueue::push(const Event& event) {
  if (events_.empty()) {
    vlog.debug("Input waits for new symbols");
    gathering_ = true;
    gatherUntil_ = plat::monotonicTime() + kGatherTime;
    timer_.start(0);
  }
  events_.push_back(event);
  arrived_ = true;
  if (events_.size() > kMaxWaiting) run();
}

void InputQueue::timerCallback(plat::Timer&) {
  if (gathering_ && arrived_ && plat::monotonicTime() < gatherUntil_) {
    arrived_ = false;
    timer_.start(0);
    return;
  }
  run();
}

void InputQueue::run() {
  gathering_ = false;
  timer_.stop();
  for (int count = 0; !events_.empty(); ++count) {
    if (count == kMaxPerTurn) {
      timer_.start(0);
      return;
    }
    Event& first = events_.front();
    if (!inject(first)) {
      if (const int ms = prepare(); ms > 0) {
        timer_.start(ms);
        return;
      }
      continue;
    }
    if (first.kind >= Event::Kind::kPosition) --pointerEventsWaiting_;
    first = Event();
    events_.pop_front();
    firstPrepared_ = false;
  }
  vlog.debug("Input goes on");
}

bool InputQueue::inject(const Event& event) {
  switch (event.kind) {
    case Event::Kind::kPress:
      return keyboard_.keyEvent(event.value, true, firstPrepared_);
    case Event::Kind::kRelease:
      return keyboard_.keyEvent(event.value, false, true);
    default:
      pointer_.pointerEvent(event.point, event.value, event.kind == Event::Kind::kOffset);
      return true;
  }
}

int InputQueue::prepare() {
  const bool patient = events_.size() <= kMaxWaiting;
  if (const std::optional<int> ms = keyboard_.timeToSpell(events_.front().value)) {
    firstPrepared_ = !patient;
    return patient ? *ms : 0;
  }

  std::vector<uint32_t, plat::WipingAllocator<uint32_t>> keysyms;
  const size_t count = std::min(events_.size(), kMaxLookAhead);
  for (size_t i = 0; i < count; ++i) {
    if (events_[i].kind == Event::Kind::kPress) keysyms.push_back(events_[i].value);
  }
  const KeyGrafts::Result result = keyboard_.graftAll(keysyms, patient);
  if (result.outcome == KeyGrafts::Outcome::kLater) return result.waitMs;
  firstPrepared_ = true;
  return result.outcome == KeyGrafts::Outcome::kGrafted && patient ? kSettleMs : 0;
}

void InputQueue::releaseAll() {
  timer_.stop();
  for (Event& event : events_) event = Event();
  events_.clear();
  gathering_ = arrived_ = firstPrepared_ = false;
  buttonMask_ = 0;
  pointerEventsWaiting_ = 0;
  pointer_.releaseButtons();
  keyboard_.releaseKeys();
}

}  // namespace svr
