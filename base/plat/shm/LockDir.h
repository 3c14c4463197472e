#pragma once

#include <string>

namespace plat {

// The user's directory for lock files of shared memory: "<base>/.ruvo-<euid>/shm/<kind>".
class LockDir {
 public:
  // The directory of a kind ("Posix", "SysV"), made if need be. Each level below the base has mode
  // 0700, belongs to us and is no link; else SystemException.
  static std::string path(const char* kind);

  // True the first time that it is asked for a kind, since the process began or the base changed.
  static bool firstUse(const char* kind);

  // Another base than "/tmp", for tests; empty for "/tmp" again.
  static void setBase(const std::string& base);
};

}  // namespace plat
