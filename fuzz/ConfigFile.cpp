// Files of the configuration directories.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "plat/Utf8.h"
#include "plat/config/BoolParameter.h"
#include "plat/config/ConfigStoreFile.h"
#include "plat/config/Configuration.h"
#include "plat/config/IntParameter.h"
#include "plat/config/ParameterAlias.h"
#include "plat/config/StringParameter.h"

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
