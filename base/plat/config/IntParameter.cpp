#include "plat/config/IntParameter.h"

#include <cerrno>
#include <cstdlib>

namespace plat {

bool IntParameter::setParam(const char* text, int priority) {
  if (!text || !*text) return false;
  char* end = nullptr;
  errno = 0;
  const long number = std::strtol(text, &end, 0);
  if (errno != 0 || end == text || *end || number < min_ || number > max_) return false;
  return store(static_cast<int>(number), priority);
}

bool IntParameter::setParam(int value, int priority) {
  return value >= min_ && value <= max_ && store(value, priority);
}

std::unique_ptr<ConfigParameter> IntParameter::clone(ParameterRegistry* registry) const {
  return std::make_unique<IntParameter>(*this, registry);
}

}  // namespace plat
