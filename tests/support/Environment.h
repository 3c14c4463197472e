#pragma once

#include <time.h>

#include <cstdlib>
#include <optional>
#include <string>

namespace support {

// Sets a variable of the environment while it lives, or takes it away (null).
class Environment {
 public:
  Environment(const char* name, const std::optional<std::string>& value) : name_(name) {
    if (const char* former = std::getenv(name)) former_ = former;
    set(value);
  }
  ~Environment() { set(former_); }
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

  void set(const std::optional<std::string>& value) {
    if (value) {
      setenv(name_, value->c_str(), 1);
    } else {
      unsetenv(name_);
    }
    tzset();  // the C library does not look at TZ each time
  }

 private:
  const char* name_;
  std::optional<std::string> former_;
};

}  // namespace support
