#pragma once

#include "plat/String.h"

namespace svr {

// The desktop's end of monitor selection.
class MonitorSelectCallback {
 public:
  // Selects monitors by a text of decimal numbers separated by commas; null or empty selects all.
  // Returns whether anything changed.
  virtual bool setMonitorSelection(const plat::String& selection) = 0;

 protected:
  ~MonitorSelectCallback() = default;
};

}  // namespace svr
