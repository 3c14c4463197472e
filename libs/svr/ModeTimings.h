#pragma once

#include <cstdint>

#include "svr/DisplaySize.h"

namespace svr {

// What the X server wants to know of a display mode, in pixels and lines. 60 Hz, or less where the
// pixel clock would not fit its 32 bits.
struct ModeTimings {
  explicit ModeTimings(const DisplaySize& size);

  uint32_t width, hSyncStart, hSyncEnd, hTotal;
  uint32_t height, vSyncStart, vSyncEnd, vTotal;
  uint32_t dotClock;  // Hz
};

}  // namespace svr
