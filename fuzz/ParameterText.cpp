// Texts that set parameters of every type, as they come from the server.

#include <cstddef>
#include <cstdint>
#include <string>

#include "Check.h"
#include "plat/Exception.h"
#include "plat/config/BinaryParameter.h"
#include "plat/config/BoolParameter.h"
#include "plat/config/Configuration.h"
#include "plat/config/EnumParameter.h"
#include "plat/config/IntParameter.h"
#include "plat/config/S64Parameter.h"
#include "plat/config/StringParameter.h"

namespace {

using namespace plat;

const char* const kNames[] = {"Auto", "Always", "Never", nullptr};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Configuration config("Fuzz");
  BoolParameter flag("Bool", "", false, false, nullptr, &config);
  IntParameter number("Int", "", 5, -100, 100000, false, nullptr, &config);
  EnumParameter choice("Enum", "", 0, kNames, false, nullptr, &config);
  StringParameter text("String", "", "", false, nullptr, &config);
  S64Parameter wide("S64", "", 0, false, nullptr, &config);
  BinaryParameter bytes("Binary", "", {}, false, nullptr, &config);

  const std::string value(reinterpret_cast<const char*>(data), size);
  for (ConfigParameter* param : config.parameters(false)) {
    const String before = param->getStoredTextAt(0);
    bool taken = false;
    try {
      taken = param->setParam(value.c_str(), 10);
    } catch (const BadUtf8&) {
      check(param == &text);
    }
    check(taken == param->hasValueAt(10));
    check(param->getStoredTextAt(0) == before);
    // What was stored reads back as itself.
    if (taken) {
      const String stored = param->getStoredTextAt(10);
      check(param->setParam(stored.c_str(), 30) && param->getStoredTextAt(30) == stored);
    }
  }
  check(number.value() >= number.min() && number.value() <= number.max());
  (void)wide.value();
  return 0;
}
