#include "plat/Deadline.h"

#include <algorithm>
#include <limits>

#include "plat/Time.h"

namespace plat {

namespace {

constexpr int64_t kNever = std::numeric_limits<int64_t>::max();

}  // namespace

Deadline::Deadline(int timeoutMs)
    : due_(timeoutMs < 0 ? kNever : monotonicTime() + timeoutMs * kTicksPerMs) {}

int Deadline::msLeft() const {
  if (due_ == kNever) return -1;
  const int64_t ms = msRoundedUp(due_ - monotonicTime());
  return static_cast<int>(std::min<int64_t>(ms, std::numeric_limits<int>::max()));
}

}  // namespace plat
