#include "plat/config/LogParameters.h"

#include "plat/config/BoolParameter.h"
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

LogParameters logParameters;

}  // namespace

LogParameters::LogParameters() {
  for (ConfigParameter* param :
       {static_cast<ConfigParameter*>(&compactLog), static_cast<ConfigParameter*>(&logDir),
        static_cast<ConfigParameter*>(&logFile), static_cast<ConfigParameter*>(&logSpec)}) {
    param->addCallback(this);
  }
}

LogParameters::~LogParameters() {
  for (ConfigParameter* param :
       {static_cast<ConfigParameter*>(&compactLog), static_cast<ConfigParameter*>(&logDir),
        static_cast<ConfigParameter*>(&logFile), static_cast<ConfigParameter*>(&logSpec)}) {
    param->removeCallback(this);
  }
}

void LogParameters::paramChanged(ConfigParameter* param, int) {
  LogManager& manager = LogManager::instance();
  if (param == &compactLog) {
    manager.setCompact(compactLog.value());
  } else if (param == &logSpec) {
    manager.setLogParam(logSpec.value().view());
  } else {
    manager.fileDest().setPath(logDir.value().str(), logFile.value().str());
  }
}

}  // namespace plat
