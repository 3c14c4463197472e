#pragma once

#include "plat/config/TypedParameter.h"

namespace plat {

// Null and empty text, "1", "on", "true" and "yes" are true; "0", "off", "false" and "no" false.
class BoolParameter final : public TypedParameter<bool> {
 public:
  BoolParameter(const char* name, const char* description, bool defaultValue, bool advanced = false,
                const char* tags = nullptr, ParameterRegistry* registry = nullptr)
      : TypedParameter(name, description, defaultValue, advanced, tags, registry) {}
  BoolParameter(const char* name, MessageId description, bool defaultValue, bool advanced = false,
                const char* tags = nullptr, ParameterRegistry* registry = nullptr)
      : TypedParameter(name, description, defaultValue, advanced, tags, registry) {}
  BoolParameter(const BoolParameter& other, ParameterRegistry* registry)
      : TypedParameter(other, registry) {}

  bool setParam(const char* text, int priority) override;
  bool setParam(int value, int priority) override;
  int getValueInt() const override { return value() ? 1 : 0; }
  const char* getTypeName() const override { return "bool"; }
  std::unique_ptr<ConfigParameter> clone(ParameterRegistry* registry) const override;

 protected:
  String valueText(const bool& value) const override { return value ? "1" : "0"; }
};

}  // namespace plat
