#pragma once

#include <atomic>
#include <cstdint>

// Shared by the agent, in which CountCalls.cpp is preloaded, and the benchmark that reads it.
struct CallCounts {
  std::atomic<uint64_t> selects;
  std::atomic<uint64_t> zeroSelects;  // with a timeout of 0
  // Xlib waits for replies with poll().
  std::atomic<uint64_t> roundTrips;
  // Those above, and what reads and writes.
  std::atomic<uint64_t> calls;
};
