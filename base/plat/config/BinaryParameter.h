#pragma once

#include <functional>

#include "plat/MBuf.h"
#include "plat/config/TypedParameter.h"

namespace plat {

// Bytes that may be secret: they are kept in sensitive buffers and never appear in getValueStr, so
// neither in logs nor in help. Their text is an even number of hexadecimal digits.
class BinaryParameter final : public TypedParameter<MBuf<unsigned char>> {
 public:
  using Bytes = MBuf<unsigned char>;

  BinaryParameter(const char* name, const char* description, Bytes defaultValue,
                  bool advanced = false, const char* tags = nullptr,
                  ParameterRegistry* registry = nullptr)
      : TypedParameter(name, description, std::move(defaultValue), advanced, tags, registry) {}
  BinaryParameter(const char* name, MessageId description, Bytes defaultValue,
                  bool advanced = false, const char* tags = nullptr,
                  ParameterRegistry* registry = nullptr)
      : TypedParameter(name, description, std::move(defaultValue), advanced, tags, registry) {}
  BinaryParameter(const BinaryParameter& other, ParameterRegistry* registry)
      : TypedParameter(other, registry) {}

  using TypedParameter::setParam;
  bool setParam(const char* text, int priority) override;
  const char* getTypeName() const override { return "binary"; }
  std::unique_ptr<ConfigParameter> clone(ParameterRegistry* registry) const override;
  String getStoredTextAt(int priority) const override;
  // Copies the effective bytes, with their sensitive flag.
  virtual void getData(Bytes& out) const { out = value(); }

  bool setValue(Bytes value, int priority) { return store(std::move(value), priority); }
  // The password that the effective bytes hold in a form that decode turns into plain text. An
  // Exception from decode is rethrown as one that names the parameter.
  MBuf<char> getPassword(const std::function<MBuf<char>(const Bytes&)>& decode) const;

 protected:
  String valueText(const Bytes&) const override { return "<binary>"; }
};

}  // namespace plat
