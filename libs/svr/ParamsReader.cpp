#include "svr/ParamsReader.h"

#include <climits>

#include "plat/Exception.h"
#include "plat/config/ConfigParameter.h"
#include "plat/config/Configuration.h"
#include "plat/log/LogSrc.h"
#include "rdr/InStream.h"

namespace svr {

void ParamsReader::readEntry(rdr::InStream& in) {
  const plat::String name = in.readShortString();
  const plat::String value = in.readString(kMaxValue);
  const uint32_t priority = in.readU32();

  plat::ConfigParameter* param = configuration_.findParam(name.view());
  if (!param) {
    log_.error("Unknown parameter '%s'", name.c_str());
    return;
  }
  if (priority > INT_MAX) {
    log_.error("Bad priority %u for parameter '%s'", priority, name.c_str());
    return;
  }
  apply(*param, value, static_cast<int>(priority));
}

void ParamsReader::apply(plat::ConfigParameter& param, const plat::String& value, int priority) {
  for (const auto& [held, text] : param.getAllValues()) {
    if (held > plat::kPriorityDefault) param.unsetParam(held, false);
  }
  if (priority == plat::kPriorityDefault) {
    param.notifyCallbacks(plat::kPriorityDefault);
    compareDefault(param, value);
    return;
  }
  bool set = false;
  try {
    set = param.setParam(value.c_str(), priority);
  } catch (const plat::BadUtf8& e) {
    log_.error("%s", e.text());
  }
  // The values were removed in silence.
  if (!set) param.notifyCallbacks(plat::kPriorityDefault);
}

void ParamsReader::compareDefault(const plat::ConfigParameter& param, const plat::String& value) {
  const plat::String own = param.getValueStrAt(plat::kPriorityDefault);
  if (own.view() == value.view()) return;
  log_.error("Bad default for parameter '%s': '%s' != '%s'", param.name(), value.c_str(),
             own.c_str());
}

}  // namespace svr
