// Bodies of the message "setParams".

#include <cstddef>
#include <cstdint>

#include "Check.h"
#include "Parameters.h"
#include "plat/Exception.h"
#include "plat/Utf8.h"
#include "plat/log/LogSrc.h"
#include "rdr/MemInStream.h"
#include "svr/ParamsReader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Parameters group;
  static plat::LogSrc log("fuzz");
  svr::ParamsReader reader(group.config, log);
  rdr::MemInStream in(data, size);
  try {
    while (in.available() > 0) {
      reader.readEntry(in);
      for (plat::ConfigParameter* param : group.config.parameters(true)) {
        // One value beside the default, at most.
        const auto values = param->getAllValues();
        check(values.begin()->first == 0 && values.size() <= 2);
      }
    }
  } catch (const plat::Exception&) {
    // An entry that is cut short, or a value that is too long.
  }
  check(group.number.values().at(0) == 5 && group.text.values().at(0) == "abc");
  check(group.number.value() >= -9 && group.number.value() <= 9 && !group.number.hasValueAt(30));
  check(plat::isValidUtf8(group.text.value().view()) && group.text.value().size() <= 1024);
  return 0;
}
