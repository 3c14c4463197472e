#pragma once

#include <utility>

#include "plat/Time.h"

namespace support {

// A clock that stands still until the test moves it. Replaces the process's clock while it lives.
class ManualClock : public plat::ClockReader {
 public:
  ManualClock() : former_(plat::setClockReader(this)) {}
  ~ManualClock() override { plat::setClockReader(former_); }

  void advanceMs(int64_t ms) { now_ += ms * plat::kTicksPerMs; }
  void advanceTicks(int64_t ticks) { now_ += ticks; }
  // Reported with the next reading.
  void setJump(plat::TimeJump jump) { jump_ = jump; }

  int64_t now() override { return now_; }
  Reading read(int64_t) override { return {now_, std::exchange(jump_, plat::TimeJump::kNone)}; }

 private:
  int64_t now_ = 1000 * plat::kTicksPerSecond;
  plat::TimeJump jump_ = plat::TimeJump::kNone;
  plat::ClockReader* former_;
};

}  // namespace support
