#pragma once

#include <cstdint>

namespace tx {

// The current time of the X server, in milliseconds; wraps after 49.7 days. One round trip.
// CurrentTime when the connection is lost, or when other clients prevent that the server tells.
uint32_t getServerTime();

// Whether X time a is later than b, in the half of the 32-bit range after it.
inline bool isLater(uint32_t a, uint32_t b) {
  return static_cast<int32_t>(a - b) > 0;
}

}  // namespace tx
