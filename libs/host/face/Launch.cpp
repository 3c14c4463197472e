#include "ruvohost/Launch.h"

#include <unistd.h>

#include <array>
#include <climits>

#include "plat/Files.h"

namespace ruvohost {

std::string findAgent() {
  std::array<char, PATH_MAX> path{};
  const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
  if (length > 0) {
    const std::string own(path.data(), static_cast<size_t>(length));
    const std::string beside = own.substr(0, own.rfind('/') + 1) + "ruvoagent";
    if (access(beside.c_str(), X_OK) == 0) return beside;
  }
  const std::string found = plat::findProgram("ruvoagent");
  return found.empty() ? "ruvoagent" : found;
}

}  // namespace ruvohost
