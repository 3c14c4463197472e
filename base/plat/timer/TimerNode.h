#pragma once

#include <cstdint>

namespace plat {

class TimerManager;

// What the manager keeps of a timer: a node of its list, which says when it is due.
class TimerNode {
 protected:
  TimerNode() = default;
  ~TimerNode() = default;

  virtual void fire() = 0;

  TimerNode* next_ = nullptr;
  TimerNode* previous_ = nullptr;
  int64_t dueTime_ = 0;  // 100 ns units of the monotonic clock
  int32_t intervalMs_ = 0;
  TimerManager* manager_ = nullptr;  // null while idle

 private:
  friend class TimerManager;
};

}  // namespace plat
