#include "plat/config/EnumParameter.h"

#include "plat/NoCase.h"

namespace plat {

bool EnumParameter::setParam(const char* text, int priority) {
  if (!text) return false;
  for (int i = 0; names_[i]; ++i) {
    if (equalNoCase(text, names_[i])) return setParam(i, priority);
  }
  return false;
}

String EnumParameter::intToStr(int value) const {
  return value >= min() && value <= max() ? String(names_[value]) : String();
}

int EnumParameter::lastIndex(const char* const* names) {
  int count = 0;
  while (names[count]) ++count;
  return count - 1;
}

std::unique_ptr<ConfigParameter> EnumParameter::clone(ParameterRegistry* registry) const {
  return std::make_unique<EnumParameter>(*this, registry);
}

}  // namespace plat
