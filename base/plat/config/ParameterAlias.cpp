#include "plat/config/ParameterAlias.h"

#include <utility>

#include "plat/config/ParameterRegistry.h"

namespace plat {

ParameterAlias::ParameterAlias(const char* name, std::vector<std::string> parameters,
                               ParameterRegistry* registry)
    : name_(name),
      parameters_(std::move(parameters)),
      registry_(registry ? registry : &ParameterRegistry::global()) {
  registry_->addAlias(name_, *this);
}

ParameterAlias::~ParameterAlias() {
  if (registry_) registry_->removeAlias(name_, *this);
}

void ParameterAlias::expand(const char*, const String& value, ValueMap& map) const {
  for (const std::string& parameter : parameters_) {
    const auto [it, added] = map.emplace(parameter, value);
    if (!added && it->second != value) it->second = value;
  }
}

}  // namespace plat
