// XML descriptions of parameters.

#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string_view>

#include "Check.h"
#include "Parameters.h"
#include "plat/Exception.h"
#include "plat/config/XmlConfig.h"

namespace {

std::string written(const Parameters& group) {
  std::ostringstream out;
  plat::XmlConfig::write(out, group.config);
  return out.str();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Parameters group;
  const std::string before = written(group);
  try {
    plat::XmlConfig::read({reinterpret_cast<const char*>(data), size}, group.config);
  } catch (const plat::Exception&) {
    check(written(group) == before);
    return 0;
  }
  // What was read can be written and read again.
  const std::string document = written(group);
  Parameters again;
  plat::XmlConfig::read(document, again.config);
  check(written(again) == document);
  return 0;
}
