#include "plat/config/S64Parameter.h"

#include <cinttypes>
#include <string_view>

#include "plat/Exception.h"
#include "plat/Hex.h"

namespace plat {

namespace {

constexpr std::string_view kPrefix = "int64:";
constexpr size_t kDigits = 16;

}  // namespace

bool S64Parameter::setParam(const char* text, int priority) {
  if (!text) return false;
  const std::string_view view = text;
  unsigned char bytes[kDigits / 2];
  if (view.size() == kPrefix.size() + kDigits && view.substr(0, kPrefix.size()) == kPrefix) {
    return hexDecode(view.substr(kPrefix.size()), bytes) && store(view, priority);
  }
  // Bare digits are the bytes as a little-endian machine keeps them, the reverse of the other form.
  if (view.size() != kDigits || !hexDecode(view, bytes)) return false;
  uint64_t number = 0;
  for (size_t i = sizeof bytes; i-- > 0;) number = number << 8 | bytes[i];
  return store(textOf(static_cast<int64_t>(number)), priority);
}

int64_t S64Parameter::value() const {
  uint64_t number = 0;
  for (const char digit : TypedParameter::value().view().substr(kPrefix.size())) {
    number = number << 4 | static_cast<uint64_t>(hexDigit(digit));
  }
  return static_cast<int64_t>(number);
}

String S64Parameter::textOf(int64_t value) {
  return format("int64:%016" PRIx64, static_cast<uint64_t>(value));
}

std::unique_ptr<ConfigParameter> S64Parameter::clone(ParameterRegistry* registry) const {
  return std::make_unique<S64Parameter>(*this, registry);
}

}  // namespace plat
