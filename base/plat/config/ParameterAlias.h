#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "plat/NoCase.h"
#include "plat/String.h"

namespace plat {

class ParameterRegistry;

// A name under which several parameters are set at once, normally a static object.
class ParameterAlias {
 public:
  using ValueMap = std::map<std::string, String, NoCaseLess>;

  // The alias's name must have static storage. A null registry is the global one.
  ParameterAlias(const char* name, std::vector<std::string> parameters,
                 ParameterRegistry* registry = nullptr);
  virtual ~ParameterAlias();
  ParameterAlias(const ParameterAlias&) = delete;
  ParameterAlias& operator=(const ParameterAlias&) = delete;

  // Puts the value to be set into the map for each parameter that the alias called name stands for.
  virtual void expand(const char* name, const String& value, ValueMap& map) const;

 private:
  friend class Configuration;

  const char* name_;
  std::vector<std::string> parameters_;
  ParameterRegistry* registry_;  // null when it has gone before
};

}  // namespace plat
