#pragma once

#include "plat/config/IntParameter.h"

namespace plat {

// One of a list of names; the value is the index. Names match in any case.
class EnumParameter final : public IntParameter {
 public:
  // names is a null-terminated array of static storage.
  EnumParameter(const char* name, const char* description, int defaultValue,
                const char* const* names, bool advanced = false, const char* tags = nullptr,
                ParameterRegistry* registry = nullptr)
      : IntParameter(name, description, defaultValue, 0, lastIndex(names), advanced, tags,
                     registry),
        names_(names) {}
  EnumParameter(const char* name, MessageId description, int defaultValue, const char* const* names,
                bool advanced = false, const char* tags = nullptr,
                ParameterRegistry* registry = nullptr)
      : IntParameter(name, description, defaultValue, 0, lastIndex(names), advanced, tags,
                     registry),
        names_(names) {}
  EnumParameter(const EnumParameter& other, ParameterRegistry* registry)
      : IntParameter(other, registry), names_(other.names_) {}

  using IntParameter::setParam;
  bool setParam(const char* text, int priority) override;
  const char* getTypeName() const override { return "enum"; }
  std::unique_ptr<ConfigParameter> clone(ParameterRegistry* registry) const override;
  // Null for an index outside the list.
  String intToStr(int value) const override;

  const char* const* names() const { return names_; }

 private:
  static int lastIndex(const char* const* names);

  const char* const* names_;
};

}  // namespace plat
