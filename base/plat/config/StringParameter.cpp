#include "plat/config/StringParameter.h"

#include "plat/Assert.h"
#include "plat/Exception.h"
#include "plat/Utf8.h"
#include "plat/config/BadUtf8Assert.h"

namespace plat {

bool StringParameter::setParam(const char* text, int priority) {
  if (!text) return false;
  if (!isValidUtf8(text)) badUtf8(format("Bad UTF-8 string for %s", name()));
  return store(text, priority);
}

String StringParameter::checkedDefault(const char* name, const char* defaultValue) {
  PLAT_ASSERT_MSG(defaultValue, "Default value <null> for %s not allowed", name);
  return defaultValue;
}

std::unique_ptr<ConfigParameter> StringParameter::clone(ParameterRegistry* registry) const {
  return std::make_unique<StringParameter>(*this, registry);
}

}  // namespace plat
