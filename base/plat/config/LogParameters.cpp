#include "plat/config/BoolParameter.h"
#include "plat/config/ParameterChangedCallback.h"
#include "plat/config/StringParameter.h"
#include "plat/log/LogManager.h"

namespace plat {

namespace {

BoolParameter compactLog(
    "CompactLog",
    "Whether to produce more compact logging lines for readability.  Also produces times in local "
    "timezone instead of UTC",
    false, true);
StringParameter logDir("LogDir", "Directory in which to store log output directed to file.", "");
StringParameter logFile("LogFile", "File in which to store log output directed to file.", "");
StringParameter logSpec("Log", "Record events in the format <log>:<target>:<level>[,...].", "");

// Passes the parameters "Log", "LogDir", "LogFile" and "CompactLog" on to the log manager. The
// values are handed over when they change, as parameters must not be read on other threads or after
// static destruction has begun.
class LogParameters : private ParameterChangedCallback {
 public:
  LogParameters() {
    for (ConfigParameter* param : kParameters) param->addCallback(this);
  }
  ~LogParameters() {
    for (ConfigParameter* param : kParameters) param->removeCallback(this);
  }
  LogParameters(const LogParameters&) = delete;
  LogParameters& operator=(const LogParameters&) = delete;

 private:
  static constexpr ConfigParameter* kParameters[] = {&compactLog, &logDir, &logFile, &logSpec};

  void paramChanged(ConfigParameter* param, int) override {
    LogManager& manager = LogManager::instance();
    if (param == &compactLog) {
      manager.setCompact(compactLog.value());
    } else if (param == &logSpec) {
      manager.setLogParam(logSpec.value().view());
    } else {
      manager.fileDest().setPath(logDir.value().str(), logFile.value().str());
    }
  }
};

LogParameters logParameters;

}  // namespace

}  // namespace plat
