#include "os/LaunchedPipe.h"

#include <fcntl.h>
#include <mbedtls/md.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string_view>

#include "io/FdSelectManager.h"
#include "plat/Deadline.h"
#include "plat/Exception.h"
#include "plat/Files.h"
#include "plat/Hex.h"
#include "plat/Trust.h"
#include "plat/log/LogSrc.h"

namespace os {

namespace {

plat::LogSrc vlog("LaunchProcess");

using std::chrono::milliseconds;

bool isDecimal(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

// Takes the time of a full comparison whatever the bytes are.
template <size_t N>
bool equalInConstantTime(const std::array<uint8_t, N>& a, const std::array<uint8_t, N>& b) {
  volatile uint8_t difference = 0;
  for (size_t i = 0; i < N; ++i) difference = static_cast<uint8_t>(difference | (a[i] ^ b[i]));
  return difference == 0;
}

// A file or terminal would be taken for a server that sends what stands there, and be written to.
bool isConnectedStream(int fd) {
  int type = 0;
  socklen_t length = sizeof type;
  sockaddr_storage peer;
  socklen_t peerLength = sizeof peer;
  return getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &length) == 0 && type == SOCK_STREAM &&
         getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &peerLength) == 0;
}

// No descriptor, with a line, when it will not do: it lies where anybody may have put a link or a
// FIFO of that name.
plat::FileDescriptor openDebugFile(const char* path) {
  try {
    plat::FileDescriptor file = plat::openTrustedLog(path, 0666, O_NOFOLLOW);
    plat::requireRegularFile(file.get());
    return file;
  } catch (const plat::Exception& e) {
    vlog.error("Not writing to %s: %s", path, e.text());
    return {};
  }
}

std::string utcNow() {
  const time_t now = time(nullptr);
  tm parts;
  char text[32];
  gmtime_r(&now, &parts);
  strftime(text, sizeof text, "%Y-%m-%d %H:%M:%SZ", &parts);
  return text;
}

}  // namespace

LaunchedPipe::LaunchedPipe(int argc, const char* const* argv, int first) : next_(first) {
  const auto current = [&]() { return next_ < argc ? argv[next_] : nullptr; };
  const auto take = [&](std::string_view option) {
    const char* argument = current();
    if (!argument || argument != option) return false;
    ++next_;
    return true;
  };

  if (take("-dummy")) {
    dummy_ = true;
    return;
  }
  for (;;) {
    if (take("-lppDebug")) {
      debug_ = true;
    } else if (take("-fork")) {
      fork_ = true;
    } else if (take("-hash")) {
      const std::string_view value = current() ? current() : "";
      Hash& hash = hash_.emplace();
      if (value.size() != 2 * hash.size() || !plat::hexDecode(value, hash.data())) {
        throw plat::Exception("-hash argument bad or missing");
      }
      ++next_;
    } else {
      break;
    }
  }
  const char* name = current();
  if (!name || *name == '-') {
    throw plat::Exception("Bad command-line: got %s instead of pipe name", name ? name : "<null>");
  }
  name_ = name;
  ++next_;
}

plat::FileDescriptor LaunchedPipe::open(const Settings& settings) {
  if (dummy_) return {};
  if (fork_) {
    const pid_t child = fork();
    if (child < 0) throw plat::SystemException("fork", errno);
    if (child > 0) _exit(0);
    setsid();
  }
  return isDecimal(name_) ? openInherited() : openSocket(settings);
}

plat::FileDescriptor LaunchedPipe::openInherited() const {
  int fd = -1;
  const char* end = name_.data() + name_.size();
  const auto parsed = std::from_chars(name_.data(), end, fd);
  if (parsed.ec != std::errc() || fcntl(fd, F_GETFD) < 0) {
    throw plat::Exception("Pipe name '%s' is not an open descriptor", name_.c_str());
  }
  io::FdSelectManager::checkPollable(fd);
  if (!isConnectedStream(fd)) {
    throw plat::Exception("Pipe name '%s' is not a connected stream socket", name_.c_str());
  }
  plat::FileDescriptor owned(fd);
  plat::FileDescriptor::setCloseOnExec(fd);
  plat::FileDescriptor::setNonBlocking(fd);
  return owned;
}

plat::FileDescriptor LaunchedPipe::openSocket(const Settings& settings) const {
  redirectErrors(settings);
  std::fprintf(stderr, "%s: connecting to '%s'\n", utcNow().c_str(), name_.c_str());
  plat::FileDescriptor fd = connect(settings.limit);
  io::FdSelectManager::checkPollable(fd.get());
  plat::FileDescriptor::setNonBlocking(fd.get());
  if (hash_) checkHash(fd.get(), settings.limit);
  return fd;
}

void LaunchedPipe::redirectErrors(const Settings& settings) const {
  plat::FileDescriptor file;
  if (debug_) file = openDebugFile(settings.debugFile);
  if (!file) file.reset(::open(settings.nullFile, O_WRONLY | O_APPEND | O_CLOEXEC | O_NOCTTY));
  if (!file) throw plat::SystemException(settings.nullFile, errno);
  if (dup2(file.get(), STDERR_FILENO) < 0) throw plat::SystemException("dup2", errno);
}

plat::FileDescriptor LaunchedPipe::connect(milliseconds limit) const {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (name_.empty()) throw plat::SystemException("connect", ENOENT);
  if (name_.size() >= sizeof address.sun_path) throw plat::SystemException("connect", ENAMETOOLONG);
  std::copy(name_.begin(), name_.end(), address.sun_path);

  plat::FileDescriptor fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd) throw plat::SystemException("socket", errno);
  const plat::Deadline deadline(static_cast<int>(limit.count()));
  for (;;) {
    // A listener that does not accept lets a connect wait, for as long as a send may. 0 would be
    // without end.
    const int ms = std::max(deadline.msLeft(), 1);
    timeval timeout;
    timeout.tv_sec = ms / 1000;
    timeout.tv_usec = (ms % 1000) * 1000;
    if (setsockopt(fd.get(), SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout) < 0) {
      throw plat::SystemException("setsockopt", errno);
    }
    if (::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
      return fd;
    }
    if (errno == EINTR && !deadline.hasPassed()) continue;
    const bool timedOut = errno == EAGAIN || errno == EINTR;
    throw plat::SystemException("connect", timedOut ? ETIMEDOUT : errno);
  }
}

void LaunchedPipe::checkHash(int fd, milliseconds limit) const {
  const plat::Deadline deadline(static_cast<int>(limit.count()));
  std::array<uint8_t, 32> secret;
  size_t length = 0;
  bool failed = false;
  while (length < secret.size() && !failed) {
    const ssize_t got = read(fd, secret.data() + length, secret.size() - length);
    if (got > 0) {
      length += static_cast<size_t>(got);
    } else if (got < 0 && errno == EAGAIN) {
      const int ms = deadline.msLeft();
      pollfd ready = {fd, POLLIN, 0};
      failed = ms == 0 || poll(&ready, 1, ms) == 0;
    } else {
      failed = got == 0 || errno != EINTR;
    }
  }

  Hash hash;
  failed = failed || mbedtls_md(mbedtls_md_info_from_type(MBEDTLS_MD_SHA256), secret.data(),
                                secret.size(), hash.data()) != 0;
  explicit_bzero(secret.data(), secret.size());
  if (failed || !equalInConstantTime(hash, *hash_)) throw plat::Exception("Bad hash");
}

}  // namespace os
