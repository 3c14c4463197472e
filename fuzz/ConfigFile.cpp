// Files of the configuration directories.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "plat/BoolParameter.h"
#include "plat/ConfigStoreFile.h"
#include "plat/Configuration.h"
#include "plat/IntParameter.h"
#include "plat/StringParameter.h"
#include "plat/Utf8.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  plat::Configuration config("Fuzz");
  plat::BoolParameter flag("f", "", false, false, nullptr, &config);
  plat::IntParameter number("n", "", 5, -9, 9, false, "noPolicy", &config);
  plat::StringParameter text("t", "", "", false, nullptr, &config);
  plat::ParameterAlias both("both", {"f", "t"}, &config);
  for (const int priority : {10, 30}) {
    nbutil::ConfigStoreFile::apply({reinterpret_cast<const char*>(data), size}, "fuzz", priority,
                                   config);
  }
  if (number.hasValueAt(30) || !plat::isValidUtf8(text.value().view())) abort();
  return 0;
}
