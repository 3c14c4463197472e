#include "plat/timer/Timer.h"

#include <algorithm>

#include "plat/Time.h"
#include "plat/timer/TimerManager.h"

namespace plat {

Timer::~Timer() {
  stop();
}

void Timer::start(int intervalMs) {
  TimerManager& manager = TimerManager::instance();
  stop();
  intervalMs_ = std::max(intervalMs, 0);
  manager.queue(*this, monotonicTime());
}

void Timer::stop() {
  if (manager_) manager_->remove(*this);
}

}  // namespace plat
