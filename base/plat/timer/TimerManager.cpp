#include "plat/timer/TimerManager.h"

#include <algorithm>
#include <limits>

#include "plat/Assert.h"
#include "plat/Time.h"
#include "plat/log/LogSrc.h"

namespace plat {

namespace {

LogSrc vlog("TimerManager");

thread_local TimerManager* thrInst = nullptr;

}  // namespace

TimerManager::TimerManager(Observer* observer, bool nested)
    : observer_(observer), previous_(thrInst) {
  PLAT_ASSERT(nested || !thrInst);
  thrInst = this;
}

TimerManager::~TimerManager() {
  observer_ = nullptr;
  while (head_) remove(*head_);
  while (!firing_.empty()) firing_.popFront()->manager_ = nullptr;
  if (thrInst == this) thrInst = previous_;
}

TimerManager& TimerManager::instance() {
  PLAT_ASSERT(thrInst);
  return *thrInst;
}

int TimerManager::millisecondsUntilNext() const {
  // A turn inside a timer's callback finds the rest of the outer pass here.
  return firing_.empty() ? millisecondsUntilHead() : 0;
}

int TimerManager::millisecondsUntilHead() const {
  if (!head_) return -1;
  // Rounded down, the last millisecond would be a busy loop.
  const int64_t ms = msRoundedUp(head_->dueTime_ - monotonicTime());
  return static_cast<int>(std::min<int64_t>(ms, std::numeric_limits<int>::max()));
}

bool TimerManager::runExpired() {
  if (head_) {
    const ClockReader::Reading reading = clockReader().read(head_->dueTime_);
    if (reading.jump != TimeJump::kNone) {
      vlog.info("%s", reading.jump == TimeJump::kForwards
                          ? "Time has jumped forwards - restarting timers"
                          : "Time has moved backwards - restarting timers");
      restartAll(reading.now);
    }
    const TimerNode* formerHead = head_;
    while (head_ && head_->dueTime_ <= reading.now) {
      TimerNode* timer = head_;
      unlink(*timer);
      firing_.pushBack(timer);
    }
    if (head_ != formerHead) headChanged();
  }

  bool ran = false;
  while (!firing_.empty()) {
    TimerNode* timer = firing_.popFront();
    timer->manager_ = nullptr;
    ran = true;
    timer->fire();
  }
  return ran;
}

void TimerManager::queue(TimerNode& timer, int64_t now) {
  timer.manager_ = this;
  timer.dueTime_ = now + timer.intervalMs_ * kTicksPerMs;
  insert(timer);
  if (head_ == &timer) headChanged();
}

void TimerManager::remove(TimerNode& timer) {
  timer.manager_ = nullptr;
  const bool linked = head_ == &timer || timer.previous_;
  if (!linked) {
    firing_.remove(&timer);
    return;
  }
  const bool wasHead = head_ == &timer;
  unlink(timer);
  if (wasHead) headChanged();
}

void TimerManager::insert(TimerNode& timer) {
  // Behind those that are due at the same time, so that they fire in the order they were started.
  TimerNode* previous = nullptr;
  TimerNode* next = head_;
  while (next && next->dueTime_ <= timer.dueTime_) {
    previous = next;
    next = next->next_;
  }
  timer.previous_ = previous;
  timer.next_ = next;
  (previous ? previous->next_ : head_) = &timer;
  if (next) next->previous_ = &timer;
}

void TimerManager::unlink(TimerNode& timer) {
  (timer.previous_ ? timer.previous_->next_ : head_) = timer.next_;
  if (timer.next_) timer.next_->previous_ = timer.previous_;
  timer.next_ = timer.previous_ = nullptr;
}

void TimerManager::restartAll(int64_t now) {
  TimerNode* timer = head_;
  head_ = nullptr;
  while (timer) {
    TimerNode* next = timer->next_;
    timer->dueTime_ = now + timer->intervalMs_ * kTicksPerMs;
    insert(*timer);
    timer = next;
  }
  headChanged();
}

void TimerManager::headChanged() {
  if (observer_) observer_->nextTimerChanged(millisecondsUntilHead());
}

}  // namespace plat
