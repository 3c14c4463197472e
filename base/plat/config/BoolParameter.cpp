#include "plat/config/BoolParameter.h"

#include <initializer_list>
#include <string_view>

#include "plat/NoCase.h"
#include "plat/log/LogSrc.h"

namespace plat {

namespace {

bool isOneOf(std::string_view text, std::initializer_list<std::string_view> words) {
  for (const std::string_view word : words) {
    if (equalNoCase(text, word)) return true;
  }
  return false;
}

}  // namespace

bool BoolParameter::setParam(const char* text, int priority) {
  if (!text || !*text || isOneOf(text, {"1", "on", "true", "yes"})) return store(true, priority);
  if (isOneOf(text, {"0", "off", "false", "no"})) return store(false, priority);
  log().error("Bool parameter %s: invalid value '%s'", name(), text);
  return false;
}

bool BoolParameter::setParam(int value, int priority) {
  return store(value != 0, priority);
}

std::unique_ptr<ConfigParameter> BoolParameter::clone(ParameterRegistry* registry) const {
  return std::make_unique<BoolParameter>(*this, registry);
}

}  // namespace plat
