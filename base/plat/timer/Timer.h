#pragma once

#include "plat/timer/TimerNode.h"

namespace plat {

// A one-shot timer of the thread that starts it. Its callback may start it again, which makes it
// periodic. Destroying it stops it.
class Timer final : private TimerNode {
 public:
  class Callback {
   public:
    virtual void timerCallback(Timer& timer) = 0;

   protected:
    ~Callback() = default;
  };

  // The callback is not owned.
  explicit Timer(Callback* callback) : callback_(callback) {}
  ~Timer();
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;

  // Starts (again) with the interval in milliseconds, counted from now; 0 fires on the next turn of
  // the loop. The thread must have a timer manager.
  void start(int intervalMs);
  // Also removes the timer from the set that is being fired.
  void stop();
  bool isRunning() const { return manager_ != nullptr; }
  int intervalMs() const { return intervalMs_; }

 private:
  void fire() override { callback_->timerCallback(*this); }

  Callback* callback_;
};

}  // namespace plat
