#pragma once

#include <cstdint>

#include "plat/config/TypedParameter.h"

namespace plat {

// A signed 64-bit number, held as "int64:" and 16 hexadecimal digits, most significant first. It
// can also be set from 8 hexadecimal bytes, least significant first. Always advanced.
class S64Parameter final : public TypedParameter<String> {
 public:
  S64Parameter(const char* name, const char* description, int64_t defaultValue,
               bool advanced = false, const char* tags = nullptr,
               ParameterRegistry* registry = nullptr)
      : TypedParameter(name, description, textOf(defaultValue), advanced, tags, registry) {}
  S64Parameter(const char* name, MessageId description, int64_t defaultValue, bool advanced = false,
               const char* tags = nullptr, ParameterRegistry* registry = nullptr)
      : TypedParameter(name, description, textOf(defaultValue), advanced, tags, registry) {}
  S64Parameter(const S64Parameter& other, ParameterRegistry* registry)
      : TypedParameter(other, registry) {}

  using TypedParameter::setParam;
  bool setParam(const char* text, int priority) override;
  const char* getTypeName() const override { return "s64"; }
  std::unique_ptr<ConfigParameter> clone(ParameterRegistry* registry) const override;

  bool setValue(int64_t value, int priority) { return store(textOf(value), priority); }
  // The effective value.
  int64_t value() const;

 protected:
  String valueText(const String& value) const override { return value; }

 private:
  static String textOf(int64_t value);
};

}  // namespace plat
