#include "support/Program.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <thread>

namespace support {

namespace {

using Clock = std::chrono::steady_clock;

plat::FileDescriptor memoryFile() {
  return plat::FileDescriptor(memfd_create("program", MFD_CLOEXEC));
}

// The child writes into files in memory, so that it never waits for the test to read.
const std::string& drained(const plat::FileDescriptor& file, std::string& text) {
  char buffer[65536];
  ssize_t n;
  while (file &&
         (n = pread(file.get(), buffer, sizeof buffer, static_cast<off_t>(text.size()))) > 0) {
    text.append(buffer, static_cast<size_t>(n));
  }
  return text;
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

  std::vector<char*> argv;
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
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
      if (dup2(from, to) == from) fcntl(to, F_SETFD, 0);
    }
    for (const auto& [name, value] : options.environment) {
      value ? setenv(name.c_str(), value->c_str(), 1) : unsetenv(name.c_str());
    }
    execvp(argv[0], argv.data());
    perror(argv[0]);
    _exit(127);
  }
}

Program::~Program() {
  end();
}

bool Program::isRunning() {
  int status = 0;
  if (!status_ && waitpid(pid_, &status, WNOHANG) == pid_) {
    status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  return !status_;
}

void Program::signal(int number) {
  if (!status_) kill(pid_, number);
}

std::optional<int> Program::wait(Milliseconds timeout) {
  waitFor([this] { return !isRunning(); }, timeout);
  return status_;
}

void Program::end() {
  if (!isRunning()) return;
  signal(SIGTERM);
  if (wait(Milliseconds(5000))) return;
  signal(SIGKILL);
  wait();
}

const std::string& Program::output() {
  return drained(outputFile_, output_);
}

const std::string& Program::errors() {
  return drained(errorFile_, errors_);
}

}  // namespace support
