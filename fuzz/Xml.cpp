// XML descriptions of parameters.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string_view>

#include "plat/Exception.h"
#include "plat/config/BinaryParameter.h"
#include "plat/config/BoolParameter.h"
#include "plat/config/Configuration.h"
#include "plat/config/EnumParameter.h"
#include "plat/config/IntParameter.h"
#include "plat/config/S64Parameter.h"
#include "plat/config/StringParameter.h"
#include "plat/config/XmlConfig.h"

namespace {

using namespace plat;

const char* const kNames[] = {"A", "B", nullptr};

struct Group {
  Configuration config{"Fuzz"};
  BoolParameter flag{"b", "", false, false, nullptr, &config};
  IntParameter number{"i", MessageId{"id"}, 5, -9, 9, true, nullptr, &config};
  EnumParameter choice{"e", "<d>", 0, kNames, false, nullptr, &config};
  StringParameter text{"t", "", "", false, "x,y", &config};
  S64Parameter wide{"w", "", 0, false, nullptr, &config};
  BinaryParameter bytes{"y", "", {}, false, nullptr, &config};
};

std::string written(const Group& group) {
  std::ostringstream out;
  XmlConfig::write(out, group.config);
  return out.str();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Group group;
  const std::string before = written(group);
  try {
    XmlConfig::read(std::string_view(reinterpret_cast<const char*>(data), size), group.config);
  } catch (const Exception&) {
    if (written(group) != before) abort();
    return 0;
  }
  // What was read can be written and read again.
  const std::string document = written(group);
  Group again;
  XmlConfig::read(document, again.config);
  if (written(again) != document) abort();
  return 0;
}
