#pragma once

#include <string>
#include <string_view>

namespace plat {
class Configuration;
}

namespace nbutil {

// Parameter values from key=value files in the directories "config.d" (preferences) and "policy.d"
// (policy) below each of the base directories. A process of root takes only files that no other
// user could have written.
class ConfigStoreFile {
 public:
  // Base directories; an empty one is skipped. Only the first scope may impose policy.
  struct Directories {
    std::string program;
    std::string firstScope;
    std::string secondScope;
  };

  explicit ConfigStoreFile(Directories directories);

  // The system-wide one that the build names ("/etc/ruvo"), then "$HOME/.ruvo".
  static Directories standardDirectories();

  // Reads what there is. Faults are logged and skipped.
  void load(plat::Configuration& configuration) const;

  // Sets the parameters of a file's lines "name = value" at the priority. Empty lines and those
  // that begin with '#' mean nothing; bad lines are logged with the path and skipped.
  static void apply(std::string_view content, const std::string& path, int priority,
                    plat::Configuration& configuration);

 private:
  void loadDirectory(const std::string& base, const char* subdirectory, int priority,
                     plat::Configuration& configuration) const;

  Directories directories_;
};

}  // namespace nbutil
