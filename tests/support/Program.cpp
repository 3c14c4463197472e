#include "support/Program.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>
#include <thread>

namespace support {

namespace {

using Clock = std::chrono::steady_clock;

void makePipe(int fds[2]) {
  if (pipe2(fds, O_CLOEXEC) != 0) throw std::runtime_error("pipe2");
}

void closeFd(int* fd) {
  if (*fd >= 0) close(*fd);
  *fd = -1;
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

Program::Program(const std::vector<std::string>& arguments, const Options& options)
    : endSignal_(options.endSignal) {
  // Writing to a child that is gone must not end the tests.
  ::signal(SIGPIPE, SIG_IGN);

  int in = -1;
  int failed[2];
  if (options.input) {
    in = memfd_create("input", MFD_CLOEXEC);
    const std::string& text = *options.input;
    if (write(in, text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
        lseek(in, 0, SEEK_SET) != 0) {
      throw std::runtime_error("memfd");
    }
  }
  if (options.captureOutput) outputFd_ = memfd_create("output", MFD_CLOEXEC);
  if (options.captureErrors) errorFd_ = memfd_create("errors", MFD_CLOEXEC);
  makePipe(failed);

  // All memory is had before the fork.
  std::vector<char*> argv;
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  std::map<std::string, std::string> variables;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text(*entry);
    const size_t equals = text.find('=');
    if (equals != std::string::npos) variables[text.substr(0, equals)] = text;
  }
  for (const auto& [name, value] : options.environment) {
    variables.erase(name);
    if (value) variables[name] = name + "=" + *value;
  }
  std::vector<char*> envp;
  for (auto& [name, text] : variables) envp.push_back(text.data());
  envp.push_back(nullptr);

  const pid_t parent = getpid();
  pid_ = fork();
  if (pid_ < 0) throw std::runtime_error("fork");
  if (pid_ == 0) {
    prctl(PR_SET_PDEATHSIG, endSignal_);
    if (getppid() != parent) _exit(127);
    ::signal(SIGPIPE, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    const int null = open("/dev/null", O_RDWR);
    dup2(in >= 0 ? in : null, 0);
    dup2(outputFd_ >= 0 ? outputFd_ : null, 1);
    if (errorFd_ >= 0) dup2(errorFd_, 2);
    for (const auto& [to, from] : options.descriptors) {
      if (from == to) {
        fcntl(to, F_SETFD, 0);
      } else {
        dup2(from, to);
      }
    }
    execvpe(argv[0], argv.data(), envp.data());
    const int error = errno;
    if (write(failed[1], &error, sizeof error) < 0) _exit(126);
    _exit(127);
  }

  closeFd(&in);
  closeFd(&failed[1]);

  int error = 0;
  const ssize_t n = read(failed[0], &error, sizeof error);
  closeFd(&failed[0]);
  if (n == sizeof error) {
    reap(true);
    closeFd(&outputFd_);
    closeFd(&errorFd_);
    throw std::runtime_error(arguments[0] + ": " + strerror(error));
  }
  pump();
}

Program::~Program() {
  end();
  closeFd(&outputFd_);
  closeFd(&errorFd_);
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
  if (outputFd_ >= 0) drain(outputFd_, &output_);
  if (errorFd_ >= 0) drain(errorFd_, &errors_);
}

bool Program::reap(bool block) {
  if (status_ || pid_ <= 0) return true;
  int status = 0;
  const pid_t done = waitpid(pid_, &status, block ? 0 : WNOHANG);
  if (done != pid_) return false;
  status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return true;
}

bool Program::isRunning() {
  pump();
  return !reap(false);
}

void Program::signal(int number) {
  if (pid_ > 0 && !status_) kill(pid_, number);
}

std::optional<int> Program::wait(Milliseconds timeout) {
  waitFor([this] { return !isRunning(); }, timeout);
  if (status_) pump();
  return status_;
}

void Program::end() {
  if (reap(false)) return;
  signal(endSignal_);
  if (wait(Milliseconds(5000))) return;
  signal(SIGKILL);
  reap(true);
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
