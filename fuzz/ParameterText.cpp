// Texts that set parameters of every type, as they come from the server.

#include <cstddef>
#include <cstdint>
#include <string>

#include "Check.h"
#include "Parameters.h"
#include "plat/Exception.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const Parameters group;
  const std::string value(reinterpret_cast<const char*>(data), size);
  for (plat::ConfigParameter* param : group.config.parameters(false)) {
    const plat::String before = param->getStoredTextAt(0);
    bool taken = false;
    try {
      taken = param->setParam(value.c_str(), 10);
    } catch (const plat::BadUtf8&) {
      check(param == &group.text);
    }
    check(taken == param->hasValueAt(10));
    check(param->getStoredTextAt(0) == before);
    // What was stored reads back as itself.
    if (taken) {
      const plat::String stored = param->getStoredTextAt(10);
      check(param->setParam(stored.c_str(), 20) && param->getStoredTextAt(20) == stored);
    }
  }
  check(group.number.value() >= -9 && group.number.value() <= 9);
  return 0;
}
