#include "plat/config/ParameterRegistry.h"

namespace plat {

void ParameterRegistry::removeAlias(const char* name, const ParameterAlias& alias) {
  const auto it = aliases_.find(name);
  if (it != aliases_.end() && it->second == &alias) aliases_.erase(it);
}

}  // namespace plat
