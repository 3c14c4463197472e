#pragma once

#include <stdexcept>

#include "plat/config/Configuration.h"

namespace support {

// Gives a global parameter a value while it lives.
class ParameterValue {
 public:
  ParameterValue(const char* name, const char* value)
      : parameter_(plat::Configuration::global().getParam(name)) {
    set(value);
  }
  ~ParameterValue() { parameter_.unsetParam(10, true); }
  ParameterValue(const ParameterValue&) = delete;
  ParameterValue& operator=(const ParameterValue&) = delete;

  void set(const char* value) {
    if (!parameter_.setParam(value, 10)) throw std::invalid_argument(value);
  }

 private:
  plat::ConfigParameter& parameter_;
};

}  // namespace support
