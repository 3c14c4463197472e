#include "support/Program.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>
#include <thread>

namespace support {

namespace {

using Clock = std::chrono::steady_clock;

plat::FileDescriptor memoryFile() {
  return plat::FileDescriptor(memfd_create("program", MFD_CLOEXEC));
}

}  // namespace

bool waitFor(const std::function<bool()>& predicate, Milliseconds timeout) {
  const auto end = Clock::now() + timeout;
  while (!predicate()) {
    if (Clock::now() >= end) return predicate();
    std::this_thread::sleep_for(Milliseconds(2));
  }
  return true;
}

Program::Program(const std::vector<std::string>& arguments, const Options& options) {
  // Writing to a child that is gone must not end the tests.
  ::signal(SIGPIPE, SIG_IGN);

  const plat::FileDescriptor null(open("/dev/null", O_RDWR | O_CLOEXEC));
  plat::FileDescriptor input;
  if (options.input) {
    input = memoryFile();
    const std::string& text = *options.input;
    if (pwrite(input.get(), text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) {
      throw std::runtime_error("memfd");
    }
  }
  if (options.captureOutput) outputFile_ = memoryFile();
  if (options.captureErrors) errorFile_ = memoryFile();

  // All memory is had before the fork.
  std::vector<char*> argv;
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  std::vector<std::string> variables;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text(*entry);
    if (!options.environment.count(text.substr(0, text.find('=')))) variables.push_back(text);
  }
  for (const auto& [name, value] : options.environment) {
    if (value) variables.push_back(name + "=" + *value);
  }
  std::vector<char*> envp;
  for (std::string& variable : variables) envp.push_back(variable.data());
  envp.push_back(nullptr);

  const pid_t parent = getpid();
  pid_ = fork();
  if (pid_ < 0) throw std::runtime_error("fork");
  if (pid_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent) _exit(127);
    ::signal(SIGPIPE, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    dup2(input ? input.get() : null.get(), 0);
    dup2(outputFile_ ? outputFile_.get() : null.get(), 1);
    if (errorFile_) dup2(errorFile_.get(), 2);
    for (const auto& [to, from] : options.descriptors) {
      if (from == to) {
        fcntl(to, F_SETFD, 0);
      } else {
        dup2(from, to);
      }
    }
    execvpe(argv[0], argv.data(), envp.data());
    perror(argv[0]);
    _exit(127);
  }
}

Program::~Program() {
  end();
}

void Program::pump() {
  // The child writes into files in memory, so that it never waits for the test to read.
  const auto drain = [](int fd, std::string* to) {
    char buffer[65536];
    for (;;) {
      const ssize_t n = pread(fd, buffer, sizeof buffer, static_cast<off_t>(to->size()));
      if (n <= 0) break;
      to->append(buffer, static_cast<size_t>(n));
    }
  };
  if (outputFile_) drain(outputFile_.get(), &output_);
  if (errorFile_) drain(errorFile_.get(), &errors_);
}

bool Program::reap(int options) {
  int status = 0;
  if (!status_ && waitpid(pid_, &status, options) == pid_) {
    status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  return status_.has_value();
}

bool Program::isRunning() {
  pump();
  return !reap(WNOHANG);
}

void Program::signal(int number) {
  if (!status_) kill(pid_, number);
}

std::optional<int> Program::wait(Milliseconds timeout) {
  waitFor([this] { return !isRunning(); }, timeout);
  if (status_) pump();
  return status_;
}

void Program::end() {
  if (reap(WNOHANG)) return;
  signal(SIGTERM);
  if (wait(Milliseconds(5000))) return;
  signal(SIGKILL);
  reap(0);
  pump();
}

const std::string& Program::output() {
  pump();
  return output_;
}

const std::string& Program::errors() {
  pump();
  return errors_;
}

std::string Program::run(const std::vector<std::string>& arguments, const Options& options,
                         Milliseconds timeout, int* status) {
  Options captured = options;
  captured.captureOutput = true;
  Program program(arguments, captured);
  const std::optional<int> result = program.wait(timeout);
  if (!result) throw std::runtime_error(arguments[0] + " does not end");
  if (status != nullptr) *status = *result;
  return program.output();
}

}  // namespace support
