// Files of the configuration directories, by themselves and where they lie.

#include <stdlib.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "plat/Utf8.h"
#include "plat/config/BoolParameter.h"
#include "plat/config/ConfigStoreFile.h"
#include "plat/config/Configuration.h"
#include "plat/config/IntParameter.h"
#include "plat/config/ParameterAlias.h"
#include "plat/config/StringParameter.h"

namespace {

// A scope with one file; gone with the process, unless that crashes.
class Scope {
 public:
  Scope() : path_((std::filesystem::temp_directory_path() / "fuzz-config.XXXXXX").string()) {
    if (!mkdtemp(path_.data())) abort();
    std::filesystem::create_directory(path_ + "/config.d");
    std::filesystem::create_directory(path_ + "/config.d/common.custom");
  }
  ~Scope() { std::filesystem::remove_all(path_); }

  void write(std::string_view content) const {
    std::ofstream(path_ + "/config.d/common", std::ios::binary) << content;
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  plat::Configuration config("Fuzz");
  plat::BoolParameter flag("f", "", false, false, nullptr, &config);
  plat::IntParameter number("n", "", 5, -9, 9, false, "noPolicy", &config);
  plat::StringParameter text("t", "", "", false, nullptr, &config);
  plat::ParameterAlias both("both", {"f", "t"}, &config);
  const std::string_view content(reinterpret_cast<const char*>(data), size);
  static const Scope scope;
  scope.write(content);
  nbutil::ConfigStoreFile({"", scope.path(), "/dev/null"}).load(config);
  for (const int priority : {10, 30}) {
    nbutil::ConfigStoreFile::apply(content, "fuzz", priority, config);
  }
  if (number.hasValueAt(30) || !plat::isValidUtf8(text.value().view())) abort();
  return 0;
}
