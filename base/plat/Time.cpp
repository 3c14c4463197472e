#include "plat/Time.h"

#include <sys/time.h>

#include <algorithm>
#include <ctime>

namespace plat {

namespace {

int64_t toTicks(const timespec& time) {
  return int64_t{time.tv_sec} * kTicksPerSecond + time.tv_nsec / 100;
}

clockid_t chooseClock() {
  timespec resolution;
  if (clock_getres(CLOCK_MONOTONIC_COARSE, &resolution) == 0 &&
      toTicks(resolution) <= kTicksPerMs) {
    return CLOCK_MONOTONIC_COARSE;
  }
  return CLOCK_MONOTONIC;
}

MonotonicClock monotonicClock;
ClockReader* replacement = nullptr;

thread_local int64_t lastReading = std::numeric_limits<int64_t>::min();

}  // namespace

int64_t MonotonicClock::now() {
  static const clockid_t clock = chooseClock();
  timespec time;
  clock_gettime(clock, &time);
  const int64_t ticks = toTicks(time);
  lastReading = std::max(lastReading, ticks);
  return ticks;
}

ClockReader::Reading MonotonicClock::read(int64_t earliestDue) {
  Reading reading{now(), TimeJump::kNone};
  if (reading.now < lastReading) {
    reading.jump = TimeJump::kBackwards;
  } else if (earliestDue != kNoTimer && reading.now - earliestDue > kMaxOverdue) {
    reading.jump = TimeJump::kForwards;
  }
  lastReading = reading.now;
  return reading;
}

ClockReader* setClockReader(ClockReader* reader) {
  ClockReader* former = replacement;
  replacement = reader;
  return former;
}

ClockReader& clockReader() {
  return replacement ? *replacement : monotonicClock;
}

int64_t monotonicTime() {
  return clockReader().now();
}

int64_t wallClockTime() {
  timeval time;
  gettimeofday(&time, nullptr);
  return kUnixEpoch + int64_t{time.tv_sec} * kTicksPerSecond + int64_t{time.tv_usec} * 10;
}

}  // namespace plat
