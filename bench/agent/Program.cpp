#include "Program.h"

#include <unistd.h>

#include <climits>
#include <cstdio>
#include <exception>

#include "plat/Exception.h"

namespace bench {

std::string ownDirectory() {
  char path[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
  const std::string own(path, length > 0 ? static_cast<size_t>(length) : 0);
  return own.substr(0, own.rfind('/') + 1);
}

int runMain(const char* program, const std::function<void()>& work) {
  try {
    work();
    return 0;
  } catch (const plat::Exception& e) {
    std::fprintf(stderr, "%s: %s\n", program, e.text());
  } catch (const std::exception& e) {
    std::fprintf(stderr, "%s: %s\n", program, e.what());
  }
  return 1;
}

}  // namespace bench
