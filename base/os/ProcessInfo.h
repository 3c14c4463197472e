#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

namespace os {

// What the system tells of a process. It may vanish, or become another one, at any time between two
// questions; what cannot be told (any more) is left empty, without a word.
class ProcessInfo {
 public:
  // Longest environment that is searched, in bytes.
  static constexpr size_t kMaxEnvironment = 64 * 1024;

  explicit ProcessInfo(pid_t pid) : ProcessInfo(pid, "/proc") {}
  // With another directory in place of /proc.
  ProcessInfo(pid_t pid, const std::string& procDirectory);

  // The real user id.
  std::optional<uid_t> userId() const;
  // The value of an environment variable as the process was started with it; empty when it is not
  // set, and when it is not for us to see.
  std::string environment(std::string_view name) const;

 private:
  std::string directory_;
};

}  // namespace os
