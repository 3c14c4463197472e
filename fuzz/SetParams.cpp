// Bodies of the message "setParams".

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "plat/Exception.h"
#include "plat/Utf8.h"
#include "plat/config/BoolParameter.h"
#include "plat/config/Configuration.h"
#include "plat/config/IntParameter.h"
#include "plat/config/StringParameter.h"
#include "plat/log/LogDest.h"
#include "plat/log/LogManager.h"
#include "plat/log/LogSrc.h"
#include "rdr/MemInStream.h"
#include "svr/ParamsReader.h"

namespace {

// Has lines formatted and drops them.
class NoLog : public plat::LogDest {
 public:
  NoLog() : LogDest("none") {
    plat::LogManager::instance().addDest(*this);
    plat::LogManager::instance().setLogSpec("*:none:200");
  }
  void write(const plat::LogLine&) override {}
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static auto* const noLog = new NoLog;
  static_cast<void>(noLog);

  plat::Configuration config("Fuzz");
  plat::BoolParameter flag("f", "", true, false, nullptr, &config);
  plat::IntParameter number("n", "", 5, -9, 9, false, "noPolicy", &config);
  plat::StringParameter text("t", "", "abc", false, nullptr, &config);

  rdr::MemInStream in(data, size);
  static plat::LogSrc log("fuzz");
  svr::ParamsReader reader(config, log);
  try {
    while (in.available() > 0) {
      reader.readEntry(in);
      for (plat::ConfigParameter* param : config.parameters(true)) {
        // One value beside the default, at most.
        const auto values = param->getAllValues();
        if (!values.count(0) || values.size() > 2 || values.begin()->first < 0) abort();
      }
    }
  } catch (const plat::Exception&) {
    // An entry that is cut short, or a value that is too long.
  }
  if (!flag.values().at(0) || number.values().at(0) != 5 || text.values().at(0) != "abc") abort();
  if (number.value() < -9 || number.value() > 9 || number.hasValueAt(30)) abort();
  if (!plat::isValidUtf8(text.value().view()) || text.value().size() > 1024) abort();
  return 0;
}
