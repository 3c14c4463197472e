#include "host/ProgramOutput.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "plat/Deadline.h"
#include "plat/Exception.h"
#include "plat/FileDescriptor.h"

extern char** environ;

namespace host {

namespace {

constexpr int kTimeoutMs = 10000;

class SpawnActions {
 public:
  SpawnActions() { posix_spawn_file_actions_init(&actions_); }
  ~SpawnActions() { posix_spawn_file_actions_destroy(&actions_); }
  SpawnActions(const SpawnActions&) = delete;
  SpawnActions& operator=(const SpawnActions&) = delete;
  posix_spawn_file_actions_t* get() { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_;
};

}  // namespace

ProgramOutput runProgram(const std::vector<std::string>& arguments) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) < 0) throw plat::SystemException("pipe", errno);
  const plat::FileDescriptor reading(ends[0]);
  plat::FileDescriptor writing(ends[1]);
  SpawnActions actions;
  posix_spawn_file_actions_addopen(actions.get(), STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(actions.get(), writing.get(), STDOUT_FILENO);
  posix_spawn_file_actions_addopen(actions.get(), STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  std::vector<char*> pointers;
  for (const std::string& argument : arguments) {
    pointers.push_back(const_cast<char*>(argument.c_str()));
  }
  pointers.push_back(nullptr);
  pid_t pid = -1;
  const int error =
      posix_spawnp(&pid, pointers[0], actions.get(), nullptr, pointers.data(), environ);
  if (error == ENOENT) return {127, {}};
  if (error != 0) throw plat::SystemException("posix_spawn", error);
  writing.reset();

  ProgramOutput result;
  const plat::Deadline deadline(kTimeoutMs);
  std::array<char, 65536> bytes;
  bool late = false;
  for (;;) {
    const int left = deadline.msLeft();
    pollfd entry{reading.get(), POLLIN, 0};
    late = left == 0 || poll(&entry, 1, left) == 0;
    if (late) break;
    const ssize_t got = read(reading.get(), bytes.data(), bytes.size());
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    result.output.append(bytes.data(), static_cast<size_t>(got));
  }
  if (late) kill(pid, SIGKILL);
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (late) throw plat::Exception("'%s' does not end", arguments[0].c_str());
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return result;
}

}  // namespace host
