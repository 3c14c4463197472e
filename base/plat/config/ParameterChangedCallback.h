#pragma once

namespace plat {

class ConfigParameter;

// Derived from by whoever must react to a change of a parameter.
class ParameterChangedCallback {
 public:
  // Called from within the setter, after the value at the priority was set or removed, whether or
  // not that priority is the effective one.
  virtual void paramChanged(ConfigParameter* param, int priority) = 0;

 protected:
  ~ParameterChangedCallback() = default;
};

}  // namespace plat
