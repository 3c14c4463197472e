#pragma once

#include <atomic>
#include <climits>

namespace plat {

// What the manager keeps of a source: its name, and the most verbose level that any destination
// takes from it.
struct LogThreshold {
  const char* const name;
  std::atomic<int> level = INT_MAX;
};

}  // namespace plat
