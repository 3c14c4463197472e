// Files of the configuration directories, by themselves and where they lie.

#include <stdlib.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string_view>

#include "Check.h"
#include "Parameters.h"
#include "plat/Utf8.h"
#include "plat/config/ConfigStoreFile.h"
#include "plat/config/ParameterAlias.h"
#include "support/TempDir.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Parameters group;
  const plat::ParameterAlias both("both", {"f", "t"}, &group.config);
  const std::string_view content(reinterpret_cast<const char*>(data), size);
  static const support::TempDir scope;
  std::filesystem::create_directories(scope / "config.d/common.custom");
  std::ofstream(scope / "config.d/common", std::ios::binary) << content;
  nbutil::ConfigStoreFile({"", scope.path(), "/dev/null"}).load(group.config);
  for (const int priority : {10, 30}) {
    nbutil::ConfigStoreFile::apply(content, "fuzz", priority, group.config);
  }
  check(!group.number.hasValueAt(30) && plat::isValidUtf8(group.text.value().view()));
  return 0;
}
