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

// Asks the predicate again and again until it is true (returned) or the time is over. Between two
// looks it sleeps a few milliseconds. The bound is for failures: make it generous.
bool waitFor(const std::function<bool()>& predicate, Milliseconds timeout = Milliseconds(10000));

// A child process. It ends at the latest when this object goes, or when the test program dies.
class Program {
 public:
  struct Options {
    // Changes to the environment; no value removes the variable.
    std::map<std::string, std::optional<std::string>> environment;
    // What the child reads from its standard input. No value: /dev/null.
    std::optional<std::string> input;
    // Collect standard output (else it is discarded).
    bool captureOutput = false;
    // Collect standard error (else it goes to the test's).
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
  // Waits for the child to end by itself. Its exit status, 128 + the signal that ended it, or no
  // value when the time is over.
  std::optional<int> wait(Milliseconds timeout = Milliseconds(10000));
  // Asks it to end, and waits; after 5 s it is killed.
  void end();

  // What has been captured so far; complete once the child has ended.
  const std::string& output();
  const std::string& errors();

  // Runs a program to its end and returns its output. Throws std::runtime_error when it takes
  // longer than the timeout.
  static std::string run(const std::vector<std::string>& arguments, const Options& options,
                         Milliseconds timeout = Milliseconds(10000), int* status = nullptr);

 private:
  void pump();
  bool reap(int options);

  pid_t pid_ = -1;
  std::optional<int> status_;
  plat::FileDescriptor outputFile_;
  plat::FileDescriptor errorFile_;
  std::string output_;
  std::string errors_;
};

}  // namespace support
