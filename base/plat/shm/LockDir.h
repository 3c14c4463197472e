#pragma once

#include <functional>
#include <memory>
#include <string>

#include "plat/shm/LockFile.h"

namespace plat {

// Where the user's lock files of shared memory lie, a directory for each kind ("Posix", "SysV"):
// "/tmp/.ruvo-<euid>/shm/<kind>" or, when that is denied to us, "$XDG_RUNTIME_DIR/ruvo/shm/<kind>",
// for root "/run/ruvo/shm/<kind>". Each level is ours, closed to others and no link: anybody may
// have put something else in its place.
class LockDir {
 public:
  // Creates and locks a file in the first place that will do. Null when there is none, which is
  // logged. Throws SystemException when somebody holds a file of this name.
  static std::unique_ptr<LockFile> lock(const char* kind, const std::string& name);

  // Cleans up behind processes that are gone: calls back for each file in the kind's directories
  // that nobody holds; it is held for the call, and removed after it. Files of unwanted names are
  // left alone.
  static void clean(
      const char* kind, const std::function<bool(const std::string& name)>& wanted,
      const std::function<void(const LockFile& lock, const std::string& name)>& remove);

  // True the first time that it is asked for a kind, since the process began or the base changed.
  static bool firstUse(const char* kind);

  // Another base than "/tmp", for tests; empty for "/tmp" again.
  static void setBase(const std::string& base);
};

}  // namespace plat
