#pragma once

#include <cstdint>

namespace plat {

// A moment of the monotonic clock, or never.
class Deadline {
 public:
  // From now; negative for never.
  explicit Deadline(int timeoutMs);

  // Whole milliseconds, rounded up: 0 only when it has passed. -1 for never, as poll() takes it.
  int msLeft() const;
  bool hasPassed() const { return msLeft() == 0; }

 private:
  const int64_t due_;  // 100 ns units
};

}  // namespace plat
