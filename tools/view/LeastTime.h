#pragma once

#include <algorithm>
#include <cstdint>

namespace view {

// The least of the times that were seen lately. All are in milliseconds.
class LeastTime {
 public:
  void saw(int64_t time, int64_t nowMs) {
    if (nowMs - beginMs_ > kPeriodMs) {
      before_ = latest_;
      latest_ = time;
      beginMs_ = nowMs;
    } else {
      latest_ = std::min(latest_, time);
    }
  }
  // 0 when none was seen yet.
  int64_t get() const {
    const int64_t least = std::min(before_, latest_);
    return least == kNone ? 0 : least;
  }

 private:
  // What was seen counts for one to two of these, and on while nothing follows.
  static constexpr int64_t kPeriodMs = 20000;
  static constexpr int64_t kNone = INT64_MAX;

  int64_t before_ = kNone, latest_ = kNone;
  int64_t beginMs_ = 0;
};

}  // namespace view
