#include "host/AgentProcess.h"

#include <fcntl.h>
#include <grp.h>
#include <mbedtls/md.h>
#include <poll.h>
#include <signal.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>

#include "plat/Deadline.h"
#include "plat/Exception.h"

extern char** environ;

namespace host {

namespace {

constexpr int kConnectTimeoutMs = 10000;
constexpr int kLeaveTimeoutMs = 5000;
// Where the agent finds its end of an inherited channel: agents take low numbers only, and a server
// may have thousands of descriptors.
constexpr int kChannelFd = 3;
// How often a waiting host looks whether the agent is still there.
constexpr int kLookMs = 20;

// A directory of our own with a listening socket in it, gone with the object.
class ListeningSocket {
 public:
  ListeningSocket() {
    char directory[] = "/tmp/ruvo-host-XXXXXX";
    if (!mkdtemp(directory)) throw plat::SystemException("mkdtemp", errno);
    directory_ = directory;
    path_ = directory_ + "/agent";
    socket_ = plat::FileDescriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path_.c_str(), sizeof address.sun_path - 1);
    if (!socket_ ||
        bind(socket_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) < 0 ||
        listen(socket_.get(), 1) < 0) {
      const int error = errno;
      remove();
      throw plat::SystemException("listen", error);
    }
  }
  ~ListeningSocket() { remove(); }
  ListeningSocket(const ListeningSocket&) = delete;
  ListeningSocket& operator=(const ListeningSocket&) = delete;

  const std::string& path() const { return path_; }
  // Lets an agent that runs as this user connect.
  void giveTo(int64_t userId, int64_t groupId) {
    const auto uid = static_cast<uid_t>(userId);
    const auto gid = static_cast<gid_t>(groupId);
    if (chown(directory_.c_str(), uid, gid) < 0 || chown(path_.c_str(), uid, gid) < 0) {
      throw plat::SystemException("chown", errno);
    }
  }

  // A child of the agent's may connect in its place, so that only failure of the agent ends the
  // wait before its time.
  plat::FileDescriptor accept(AgentProcess& agent, int timeoutMs) {
    const plat::Deadline deadline(timeoutMs);
    pollfd waiting{socket_.get(), POLLIN, 0};
    while (poll(&waiting, 1, kLookMs) <= 0) {
      const int status = agent.wait(0).value_or(0);
      if (status != 0) {
        throw plat::Exception("the agent ended with status %d before it connected", status);
      }
      if (deadline.hasPassed()) {
        throw plat::Exception("the agent did not connect to '%s'", path_.c_str());
      }
    }
    plat::FileDescriptor connection(accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!connection) throw plat::SystemException("accept", errno);
    return connection;
  }

 private:
  void remove() {
    unlink(path_.c_str());
    rmdir(directory_.c_str());
  }

  std::string directory_;
  std::string path_;
  plat::FileDescriptor socket_;
};

std::string sha256Hex(const uint8_t* data, size_t length) {
  std::array<uint8_t, 32> digest{};
  if (mbedtls_md(mbedtls_md_info_from_type(MBEDTLS_MD_SHA256), data, length, digest.data()) != 0) {
    throw plat::Exception("SHA-256 failed");
  }
  std::string text;
  for (const uint8_t byte : digest) text += plat::format("%02x", byte);
  return text;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> result;
  for (std::string& text : texts) result.push_back(text.data());
  result.push_back(nullptr);
  return result;
}

std::vector<std::string> environmentOf(const LaunchOptions& options) {
  std::map<std::string, std::string> values;
  for (char** entry = environ; *entry; ++entry) {
    const char* equals = std::strchr(*entry, '=');
    if (equals) values[std::string(*entry, static_cast<size_t>(equals - *entry))] = equals + 1;
  }
  if (!options.display.empty()) values["DISPLAY"] = options.display;
  for (const auto& [name, value] : options.environment) values[name] = value;
  std::vector<std::string> result;
  for (const auto& [name, value] : values) result.push_back(name + "=" + value);
  return result;
}

// The child's side, between fork and exec: only calls that are safe there.
[[noreturn]] void runAgent(const LaunchOptions& options, char* const* arguments,
                           char* const* environment, int inherited, int report) {
  if (options.standardOutput >= 0) dup2(options.standardOutput, STDOUT_FILENO);
  if (options.standardError >= 0) dup2(options.standardError, STDERR_FILENO);
  bool good = true;
  if (inherited >= 0) {
    const int moved = fcntl(report, F_DUPFD_CLOEXEC, kChannelFd + 1);
    if (moved >= 0) report = moved;
    good = moved >= 0 && (inherited == kChannelFd ? fcntl(inherited, F_SETFD, 0)
                                                  : dup2(inherited, kChannelFd)) >= 0;
  }
  if (good && options.groupId >= 0) {
    good = setgroups(0, nullptr) == 0 && setgid(static_cast<gid_t>(options.groupId)) == 0;
  }
  if (good && options.userId >= 0) good = setuid(static_cast<uid_t>(options.userId)) == 0;
  if (good) execve(arguments[0], arguments, environment);
  const int error = errno;
  [[maybe_unused]] const ssize_t written = write(report, &error, sizeof error);
  _exit(127);
}

}  // namespace

AgentProcess AgentProcess::launch(const LaunchOptions& options) {
  std::vector<std::string> arguments{options.agent, options.mode};
  std::optional<ListeningSocket> listening;
  plat::FileDescriptor ours, theirs;
  std::array<uint8_t, 32> secret{};

  for (const std::string& option : options.pipeOptions) arguments.push_back(option);
  switch (options.channel) {
    case LaunchOptions::Channel::kNone:
      arguments.push_back("-dummy");
      break;
    case LaunchOptions::Channel::kDescriptor: {
      int ends[2];
      if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) < 0) {
        throw plat::SystemException("socketpair", errno);
      }
      ours.reset(ends[0]);
      theirs.reset(ends[1]);
      arguments.push_back(std::to_string(kChannelFd));
      break;
    }
    case LaunchOptions::Channel::kNamedSocket:
      listening.emplace();
      if (options.userId >= 0) listening->giveTo(options.userId, options.groupId);
      if (options.useHash) {
        if (getrandom(secret.data(), secret.size(), 0) != static_cast<ssize_t>(secret.size())) {
          throw plat::SystemException("getrandom", errno);
        }
        arguments.push_back("-hash");
        arguments.push_back(sha256Hex(secret.data(), secret.size()));
      }
      arguments.push_back(listening->path());
      break;
  }
  // A viewer's script may have any number of symbols that the keyboard lacks.
  if (options.reuseGrafts) arguments.push_back("_ReuseGrafts=1");
  for (const auto& [name, value] : options.parameters) arguments.push_back(name + "=" + value);

  std::vector<std::string> environment = environmentOf(options);
  const std::vector<char*> argumentPointers = pointers(arguments);
  const std::vector<char*> environmentPointers = pointers(environment);

  int report[2];
  if (pipe2(report, O_CLOEXEC) < 0) throw plat::SystemException("pipe", errno);
  plat::FileDescriptor reportRead(report[0]), reportWrite(report[1]);

  const pid_t pid = fork();
  if (pid < 0) throw plat::SystemException("fork", errno);
  if (pid == 0) {
    runAgent(options, argumentPointers.data(), environmentPointers.data(), theirs.get(), report[1]);
  }

  theirs.reset();
  reportWrite.reset();
  AgentProcess process(pid, std::move(ours));
  int error = 0;
  ssize_t got;
  do {
    got = read(reportRead.get(), &error, sizeof error);
  } while (got < 0 && errno == EINTR);
  if (got == sizeof error) {
    throw plat::SystemException(plat::format("starting '%s'", options.agent.c_str()), error);
  }

  if (listening) {
    process.channel_ = listening->accept(process, kConnectTimeoutMs);
    if (options.useHash && send(process.channel_.get(), secret.data(), secret.size(),
                                MSG_NOSIGNAL) != static_cast<ssize_t>(secret.size())) {
      throw plat::SystemException("send", errno);
    }
  }
  return process;
}

AgentProcess::AgentProcess(AgentProcess&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)),
      channel_(std::move(other.channel_)),
      status_(other.status_) {}

AgentProcess::~AgentProcess() {
  if (pid_ < 0) return;
  const bool connected = static_cast<bool>(channel_);
  channel_.reset();
  if (connected && wait(kLeaveTimeoutMs)) return;
  if (wait(0)) return;
  signal(SIGTERM);
  if (wait(kLeaveTimeoutMs)) return;
  signal(SIGKILL);
  wait(-1);
}

void AgentProcess::signal(int signalNumber) {
  if (!status_ && pid_ > 0) kill(pid_, signalNumber);
}

std::optional<int> AgentProcess::wait(int timeoutMs) {
  if (status_) return status_;
  if (pid_ < 0) return std::nullopt;
  // A descriptor of the process becomes readable when it ends.
  const plat::FileDescriptor process(static_cast<int>(syscall(SYS_pidfd_open, pid_, 0)));
  const plat::Deadline deadline(timeoutMs);
  for (;;) {
    int status = 0;
    const pid_t ended = waitpid(pid_, &status, WNOHANG);
    if (ended == pid_) {
      status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
      return status_;
    }
    if (ended < 0 && errno != EINTR) return std::nullopt;
    const int left = deadline.msLeft();
    if (left == 0) return std::nullopt;
    pollfd waiting{process.get(), POLLIN, 0};
    poll(&waiting, 1, process ? left : 10);
  }
}

}  // namespace host
