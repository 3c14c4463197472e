#pragma once

#include <functional>
#include <utility>

#include "plat/timer/Timer.h"

namespace support {

// A timer that runs a function.
class ActionTimer : private plat::Timer::Callback {
 public:
  explicit ActionTimer(std::function<void()> action = [] {})
      : timer(this), action_(std::move(action)) {}
  virtual ~ActionTimer() = default;

  plat::Timer timer;

 private:
  void timerCallback(plat::Timer&) override { action_(); }

  std::function<void()> action_;
};

}  // namespace support
