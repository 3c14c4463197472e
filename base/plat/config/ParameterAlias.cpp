#include "plat/config/ParameterAlias.h"

#include <utility>

#include "plat/config/Configuration.h"

namespace plat {

ParameterAlias::ParameterAlias(const char* name, std::vector<std::string> parameters,
                               Configuration* configuration)
    : name_(name),
      parameters_(std::move(parameters)),
      configuration_(configuration ? configuration : &Configuration::global()) {
  configuration_->aliases_[name_] = this;
}

ParameterAlias::~ParameterAlias() {
  if (!configuration_) return;
  const auto it = configuration_->aliases_.find(name_);
  if (it != configuration_->aliases_.end() && it->second == this) {
    configuration_->aliases_.erase(it);
  }
}

void ParameterAlias::expand(const char*, const String& value, ValueMap& map) const {
  for (const std::string& parameter : parameters_) {
    const auto [it, added] = map.emplace(parameter, value);
    if (!added && it->second != value) it->second = value;
  }
}

}  // namespace plat
