#pragma once

#include "plat/config/ParameterChangedCallback.h"

namespace plat {

// Passes the parameters "Log", "LogDir", "LogFile" and "CompactLog" on to the log manager. The
// values are handed over when they change, as parameters must not be read on other threads or after
// static destruction has begun.
class LogParameters : private ParameterChangedCallback {
 public:
  LogParameters();
  ~LogParameters();
  LogParameters(const LogParameters&) = delete;
  LogParameters& operator=(const LogParameters&) = delete;

 private:
  void paramChanged(ConfigParameter* param, int priority) override;
};

}  // namespace plat
