#include "svr/ModeTimings.h"

#include <algorithm>

namespace svr {

ModeTimings::ModeTimings(const DisplaySize& size)
    : width(static_cast<uint32_t>(size.width)),
      hSyncStart(width + 48),
      hSyncEnd(width + 80),
      hTotal(width + 160),
      height(static_cast<uint32_t>(size.height)),
      vSyncStart(height + 3),
      vSyncEnd(height + 8),
      vTotal(height + 25),
      dotClock(
          static_cast<uint32_t>(std::min<uint64_t>(uint64_t{hTotal} * vTotal * 60, UINT32_MAX))) {}

}  // namespace svr
