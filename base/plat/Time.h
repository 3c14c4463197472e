#pragma once

#include <cstdint>
#include <limits>

namespace plat {

// Times are 64-bit counts of 100 ns units.
constexpr int64_t kTicksPerMs = 10000;
constexpr int64_t kTicksPerSecond = 1000 * kTicksPerMs;
// Milliseconds, rounded up; 0 for less than none.
constexpr int64_t msRoundedUp(int64_t ticks) {
  return ticks <= 0 ? 0 : (ticks + kTicksPerMs - 1) / kTicksPerMs;
}
// 1 January 1970 in wall-clock time.
constexpr int64_t kUnixEpoch = 116444736000000000;

enum class TimeJump { kNone, kForwards, kBackwards };

// The source of monotonic time.
class ClockReader {
 public:
  static constexpr int64_t kNoTimer = std::numeric_limits<int64_t>::max();

  struct Reading {
    int64_t now;
    TimeJump jump;
  };

  virtual ~ClockReader() = default;

  virtual int64_t now() = 0;
  // The time together with whether it jumped since the last reading on this thread. earliestDue is
  // the due time of the first queued timer, or kNoTimer: one that is overdue for minutes tells that
  // the machine or the process was suspended.
  virtual Reading read(int64_t earliestDue) = 0;
};

// The monotonic clock: CLOCK_MONOTONIC_COARSE where it is precise to a millisecond, else
// CLOCK_MONOTONIC. The choice is made once.
class MonotonicClock : public ClockReader {
 public:
  static constexpr int64_t kMaxOverdue = 300 * kTicksPerSecond;

  int64_t now() override;
  Reading read(int64_t earliestDue) override;
};

// Replaces the clock of the process (null restores the monotonic clock); not owned. Returns the
// former one, null for the monotonic clock. Meant for tests, before any other thread reads the
// time.
ClockReader* setClockReader(ClockReader* reader);
ClockReader& clockReader();

// Monotonic time, from the clock reader.
int64_t monotonicTime();
// Wall-clock time since 1 January 1601, UTC.
int64_t wallClockTime();

}  // namespace plat
