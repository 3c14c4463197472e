#pragma once

#include <map>
#include <utility>

#include "plat/config/ConfigParameter.h"

namespace plat {

// The values of a parameter, by priority.
template <typename T>
class TypedParameter : public ConfigParameter {
 public:
  using ConfigParameter::setParam;

  bool unsetParam(int priority, bool notify) override {
    if (priority == kPriorityDefault || values_.erase(priority) == 0) return false;
    valueUnset(priority, notify);
    return true;
  }
  int getPriority() const override { return values_.rbegin()->first; }
  bool hasValueAt(int priority) const override { return values_.count(priority) != 0; }
  String getValueStr() const override { return valueText(value()); }
  String getValueStrAt(int priority) const override {
    const auto it = values_.find(priority);
    return it == values_.end() ? String() : valueText(it->second);
  }
  std::map<int, String> getAllValues() const override {
    std::map<int, String> texts;
    for (const auto& [priority, value] : values_) texts.emplace(priority, valueText(value));
    return texts;
  }

  // The effective value.
  const T& value() const { return values_.rbegin()->second; }
  const std::map<int, T>& values() const { return values_; }

 protected:
  template <typename Description>
  TypedParameter(const char* name, Description description, T defaultValue, bool advanced,
                 const char* tags, ParameterRegistry* registry)
      : ConfigParameter(name, description, advanced, tags, registry) {
    values_.emplace(kPriorityDefault, std::move(defaultValue));
  }
  TypedParameter(const TypedParameter& other, ParameterRegistry* registry)
      : ConfigParameter(other, registry), values_(other.values_) {}

  virtual String valueText(const T& value) const = 0;

  // Stores a value that was found valid. False when the parameter takes no value at this priority.
  bool store(T value, int priority) {
    if (!acceptsPriority(priority)) return false;
    const auto it = values_.find(priority);
    if (it == values_.end()) {
      values_.emplace(priority, std::move(value));
    } else {
      if (it->second == value) return true;
      it->second = std::move(value);
    }
    valueSet(priority);
    return true;
  }

 private:
  std::map<int, T> values_;  // never empty
};

}  // namespace plat
