#include "plat/config/BinaryParameter.h"

#include <cstring>

#include "plat/Exception.h"
#include "plat/Hex.h"

namespace plat {

bool BinaryParameter::setParam(const char* text, int priority) {
  if (!text) return false;
  const size_t length = std::strlen(text);
  // Decoded in place, so that no copy of the bytes stays behind in unwiped memory.
  Bytes bytes(reinterpret_cast<const unsigned char*>(text), length / 2, true);
  return hexDecode({text, length}, bytes.data()) && store(std::move(bytes), priority);
}

String BinaryParameter::getStoredTextAt(int priority) const {
  const auto it = values().find(priority);
  if (it == values().end()) return {};
  return hexEncode(it->second.data(), it->second.size());
}

MBuf<char> BinaryParameter::getPassword(
    const std::function<MBuf<char>(const Bytes&)>& decode) const {
  try {
    return decode(value());
  } catch (const Exception& e) {
    throw Exception("Error getting password from %s parameter: %s", name(), e.text());
  }
}

std::unique_ptr<ConfigParameter> BinaryParameter::clone(ParameterRegistry* registry) const {
  return std::make_unique<BinaryParameter>(*this, registry);
}

}  // namespace plat
