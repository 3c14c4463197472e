#pragma once

#include <map>
#include <string>
#include <vector>

#include "plat/NoCase.h"

namespace plat {

class ConfigParameter;
class ParameterAlias;

// Where parameters and aliases register themselves; Configuration makes something of them. Nothing
// here is owned. Main thread only.
class ParameterRegistry {
 public:
  // The one that parameters without another use: Configuration::global(), which defines it.
  static ParameterRegistry& global();

  ParameterRegistry(const ParameterRegistry&) = delete;
  ParameterRegistry& operator=(const ParameterRegistry&) = delete;

  void add(ConfigParameter& param) { params_.push_back(&param); }
  void remove(const ConfigParameter& param) { std::erase(params_, &param); }
  // The last alias of a name stands.
  void addAlias(const char* name, ParameterAlias& alias) { aliases_[name] = &alias; }
  void removeAlias(const char* name, const ParameterAlias& alias);

  // Whether changes of parameters are logged.
  bool logChanges() const { return logChanges_; }
  void setLogChanges(bool logChanges) { logChanges_ = logChanges; }

 protected:
  ParameterRegistry() = default;
  ~ParameterRegistry() = default;

  std::vector<ConfigParameter*> params_;  // in the order in which they were made
  std::map<std::string, ParameterAlias*, NoCaseLess> aliases_;

 private:
  bool logChanges_ = true;
};

}  // namespace plat
