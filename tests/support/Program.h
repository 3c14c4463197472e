#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "plat/FileDescriptor.h"

namespace support {

using Milliseconds = std::chrono::milliseconds;

// Asks the predicate again and again until it is true (returned) or the time is over.
bool waitFor(const std::function<bool()>& predicate, Milliseconds timeout = Milliseconds(10000));

// A child process. It ends at the latest when this object goes, or when the test program dies.
class Program {
 public:
  struct Options {
    // Changes to the environment; no value removes the variable.
    std::map<std::string, std::optional<std::string>> environment;
    // Standard input. No value: /dev/null.
    std::optional<std::string> input;
    // Collect standard output, else discarded, and error, else the test's.
    bool captureOutput = false;
    bool captureErrors = false;
    // Descriptors that the child inherits, by the number that they get there.
    std::map<int, int> descriptors;
  };

  // Starts the program (looked up in PATH); one that cannot be started ends with 127.
  Program(const std::vector<std::string>& arguments, const Options& options);
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  pid_t pid() const { return pid_; }
  bool isRunning();
  void signal(int number);
  // Its exit status, 128 + the signal that ended it, or no value when the time is over.
  std::optional<int> wait(Milliseconds timeout = Milliseconds(10000));
  // Asks it to end, and waits; after 5 s it is killed.
  void end();
  // What has been captured so far; complete once the child has ended.
  const std::string& output();
  const std::string& errors();

 private:
  std::optional<int> status_;
  pid_t pid_ = -1;
  plat::FileDescriptor outputFile_, errorFile_;
  std::string output_, errors_;
};

}  // namespace support
