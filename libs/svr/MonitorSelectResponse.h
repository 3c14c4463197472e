#pragma once

#include <vector>

#include "plat/String.h"
#include "rdr/DisplayInfo.h"

namespace svr {

// Told whenever the desktop has rebuilt its capture buffer.
class MonitorSelectResponse {
 public:
  // parameter: the value of the parameter `Monitor`. inForce: the text whose rectangle is captured,
  // null when everything is.
  virtual void monitorsUpdated(const std::vector<plat::DisplayInfo>& monitors,
                               const plat::String& parameter, const plat::String& inForce) = 0;
  virtual ~MonitorSelectResponse() = default;
};

}  // namespace svr
