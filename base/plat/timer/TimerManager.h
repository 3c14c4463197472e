#pragma once

#include <cstdint>

#include "plat/timer/CircularVector.h"
#include "plat/timer/TimerNode.h"

namespace plat {

// The timers of one thread, in the order in which they are due. Managers nest: the last one made on
// a thread is the thread's manager until it is destroyed.
class TimerManager {
 public:
  class Observer {
   public:
    // The first timer of the list is another one now; -1 when none is left.
    virtual void nextTimerChanged(int msUntilNext) = 0;

   protected:
    ~Observer() = default;
  };

  // The observer may be null; it is not owned. A thread that has a manager takes only a nested one.
  explicit TimerManager(Observer* observer = nullptr, bool nested = false);
  // Stops the timers that are still queued. Nested managers end in reverse order.
  ~TimerManager();
  TimerManager(const TimerManager&) = delete;
  TimerManager& operator=(const TimerManager&) = delete;

  // The thread's manager, which must exist.
  static TimerManager& instance();

  // -1 without a timer, 0 when one is due, else the time left rounded up to whole milliseconds.
  int millisecondsUntilNext() const;

  // Calls back every timer that is due at this moment; one that a callback starts waits for the
  // next call. Returns whether any timer ran.
  bool runExpired();

 private:
  friend class Timer;

  // Queues an idle timer, due at now plus its interval.
  void queue(TimerNode& timer, int64_t now);
  // Takes a queued timer out, also when it waits to be fired.
  void remove(TimerNode& timer);
  void insert(TimerNode& timer);
  void unlink(TimerNode& timer);
  void restartAll(int64_t now);
  int millisecondsUntilHead() const;
  void headChanged();

  TimerNode* head_ = nullptr;
  CircularVector<TimerNode*> firing_;
  Observer* observer_;
  TimerManager* previous_;
};

}  // namespace plat
