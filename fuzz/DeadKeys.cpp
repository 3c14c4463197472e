// Files of dead keys, as the parameter `DeadKeyFile` names them.

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "plat/config/Configuration.h"
#include "plat/log/LogManager.h"
#include "rfb/DeadKeyUtil.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  plat::LogManager::instance().setLogSpec("");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const int file = memfd_create("deadkeys", 0);
  static const std::string path = "/proc/self/fd/" + std::to_string(file);
  if (ftruncate(file, 0) != 0 || pwrite(file, data, size, 0) != static_cast<ssize_t>(size)) abort();
  plat::Configuration::global().getParam("DeadKeyFile").setParam(path.c_str(), 10);
  for (const char* layout : {"", "de"}) {
    const rfb::DeadKeyUtil util(layout);
    // Whatever the file says, what came with the program stays known.
    if (!util.spelling(0xE9)) abort();
  }
  return 0;
}
