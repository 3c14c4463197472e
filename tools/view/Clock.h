#pragma once

#include <chrono>
#include <cstdint>

namespace view {

// Milliseconds of a clock that only goes forward.
inline int64_t nowMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

}  // namespace view
