#pragma once

#include "plat/config/TypedParameter.h"

namespace plat {

// UTF-8 text, never null.
class StringParameter final : public TypedParameter<String> {
 public:
  // A null default fails an assertion.
  StringParameter(const char* name, const char* description, const char* defaultValue,
                  bool advanced = false, const char* tags = nullptr,
                  ParameterRegistry* registry = nullptr)
      : TypedParameter(name, description, checkedDefault(name, defaultValue), advanced, tags,
                       registry) {}
  StringParameter(const char* name, MessageId description, const char* defaultValue,
                  bool advanced = false, const char* tags = nullptr,
                  ParameterRegistry* registry = nullptr)
      : TypedParameter(name, description, checkedDefault(name, defaultValue), advanced, tags,
                       registry) {}
  StringParameter(const StringParameter& other, ParameterRegistry* registry)
      : TypedParameter(other, registry) {}

  using TypedParameter::setParam;
  // Throws BadUtf8 for text that is not UTF-8.
  bool setParam(const char* text, int priority) override;
  const char* getTypeName() const override { return "string"; }
  std::unique_ptr<ConfigParameter> clone(ParameterRegistry* registry) const override;

 protected:
  String valueText(const String& value) const override { return value; }

 private:
  static String checkedDefault(const char* name, const char* defaultValue);
};

}  // namespace plat
