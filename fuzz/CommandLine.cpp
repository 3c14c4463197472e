// Command lines: the input's lines are the arguments.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "plat/Exception.h"
#include "plat/config/BoolParameter.h"
#include "plat/config/Configuration.h"
#include "plat/config/IntParameter.h"
#include "plat/config/StringParameter.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<std::string> lines(1);
  for (size_t i = 0; i < size; ++i) {
    if (data[i] == '\n') {
      lines.emplace_back();
    } else if (data[i] != 0) {
      lines.back() += static_cast<char>(data[i]);
    }
  }
  std::vector<const char*> args;
  for (const std::string& line : lines) args.push_back(line.c_str());
  args.push_back(nullptr);

  plat::Configuration config("Fuzz");
  plat::BoolParameter flag("f", "", false, false, nullptr, &config);
  plat::IntParameter number("n", "", 5, -9, 9, false, nullptr, &config);
  plat::StringParameter text("t", "", "", false, nullptr, &config);
  int helped = 0;
  try {
    config.processArgs(args.data(), [&](plat::Configuration::HelpMode) { ++helped; });
    if (helped) abort();  // a help argument is always refused in the end
  } catch (const plat::Exception& e) {
    if (helped > 1 || !*e.text()) abort();
  }
  return 0;
}
