#pragma once

#include <atomic>
#include <cstdint>

// Shared by the agent, in which CountCalls.cpp is preloaded, and the benchmark that reads it.
struct CallCounts {
  std::atomic<uint64_t> selects;
  std::atomic<uint64_t> zeroSelects;  // with a timeout of 0
  // Xlib waits for a reply with poll(); nothing else in the agent calls it after the start.
  std::atomic<uint64_t> roundTrips;
};
