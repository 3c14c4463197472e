#pragma once

#include <fstream>
#include <iterator>
#include <string>

#include "support/Program.h"

namespace support {

// A process of another user that does nothing. Needs root and setpriv.
class UserProcess {
 public:
  UserProcess(unsigned userId, const std::string& xauthority)
      : program_({"setpriv", "--reuid", std::to_string(userId), "--clear-groups", "--pdeathsig",
                  "TERM", "sleep", "600"},
                 options(xauthority)) {
    // A process has no environment for a moment while it becomes another program.
    ready_ = waitFor(
        [this] { return read("cmdline").starts_with("sleep") && !read("environ").empty(); });
  }

  // It has become the user's.
  bool isReady() const { return ready_; }
  pid_t pid() const { return program_.pid(); }
  void end() { program_.end(); }

 private:
  static Program::Options options(const std::string& xauthority) {
    Program::Options options;
    if (xauthority.empty()) {
      options.environment["XAUTHORITY"] = std::nullopt;
    } else {
      options.environment["XAUTHORITY"] = xauthority;
    }
    return options;
  }

  std::string read(const char* name) const {
    std::ifstream file("/proc/" + std::to_string(program_.pid()) + "/" + name);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  Program program_;
  bool ready_ = false;
};

}  // namespace support
