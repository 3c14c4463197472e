#pragma once

#include "plat/config/TypedParameter.h"

namespace plat {

// A number within inclusive limits. Its text is decimal, hexadecimal with "0x" or octal with a
// leading zero.
class IntParameter : public TypedParameter<int> {
 public:
  IntParameter(const char* name, const char* description, int defaultValue, int min, int max,
               bool advanced = false, const char* tags = nullptr,
               ParameterRegistry* registry = nullptr)
      : TypedParameter(name, description, defaultValue, advanced, tags, registry),
        min_(min),
        max_(max) {}
  IntParameter(const char* name, MessageId description, int defaultValue, int min, int max,
               bool advanced = false, const char* tags = nullptr,
               ParameterRegistry* registry = nullptr)
      : TypedParameter(name, description, defaultValue, advanced, tags, registry),
        min_(min),
        max_(max) {}
  IntParameter(const IntParameter& other, ParameterRegistry* registry)
      : TypedParameter(other, registry), min_(other.min_), max_(other.max_) {}

  bool setParam(const char* text, int priority) override;
  bool setParam(int value, int priority) override;
  int getValueInt() const override { return value(); }
  const char* getTypeName() const override { return "int"; }
  std::unique_ptr<ConfigParameter> clone(ParameterRegistry* registry) const override;

  int min() const { return min_; }
  int max() const { return max_; }

 protected:
  String valueText(const int& value) const override { return intToStr(value); }

 private:
  int min_;
  int max_;
};

}  // namespace plat
