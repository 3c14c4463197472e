// Preloaded into the agent: counts the calls that a benchmark wants to know of, in the shared file
// that RUVO_CALL_COUNTS names.

// The calls of libraries that know 32-bit times only; see below for the agent's own.
#undef _TIME_BITS

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cstdlib>
#include <utility>

#include "CallCounts.h"

namespace {

CallCounts* mapCounts() {
  static CallCounts unused{};
  const char* path = std::getenv("RUVO_CALL_COUNTS");
  const int fd = path ? open(path, O_RDWR | O_CLOEXEC) : -1;
  if (fd < 0) return &unused;
  void* mapped = mmap(nullptr, sizeof(CallCounts), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  close(fd);
  return mapped == MAP_FAILED ? &unused : static_cast<CallCounts*>(mapped);
}

CallCounts& counts() {
  static CallCounts* const mapped = mapCounts();
  return *mapped;
}

// Whether anything has been sent since Xlib last waited for a reply.
thread_local bool hasAsked = false;

template <typename Function>
Function next(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

template <typename Timeval>
void countSelect(const Timeval* timeout) {
  ++counts().calls;
  ++counts().selects;
  if (timeout && timeout->tv_sec == 0 && timeout->tv_usec == 0) ++counts().zeroSelects;
}

}  // namespace

extern "C" int select(int nfds, fd_set* reads, fd_set* writes, fd_set* exceptions,
                      timeval* timeout) noexcept(noexcept(::select(0, nullptr, nullptr, nullptr,
                                                                   nullptr))) {
  static const auto real = next<int (*)(int, fd_set*, fd_set*, fd_set*, timeval*)>("select");
  countSelect(timeout);
  return real(nfds, reads, writes, exceptions, timeout);
}

#if __TIMESIZE == 32
// What programs of 32 bits with 64-bit times call.
struct Timeval64 {
  int64_t tv_sec;
  int64_t tv_usec;
};
extern "C" int select64(int nfds, fd_set* reads, fd_set* writes, fd_set* exceptions,
                        Timeval64* timeout) __asm__("__select64");
extern "C" int select64(int nfds, fd_set* reads, fd_set* writes, fd_set* exceptions,
                        Timeval64* timeout) {
  static const auto real = next<int (*)(int, fd_set*, fd_set*, fd_set*, Timeval64*)>("__select64");
  countSelect(timeout);
  return real(nfds, reads, writes, exceptions, timeout);
}
#endif

extern "C" int poll(pollfd* fds, nfds_t count, int timeoutMs) {
  static const auto real = next<int (*)(pollfd*, nfds_t, int)>("poll");
  ++counts().calls;
  // A reply that comes in pieces, or behind events, is waited for more than once.
  if (count == 1 && fds->events == POLLIN && std::exchange(hasAsked, false)) ++counts().roundTrips;
  return real(fds, count, timeoutMs);
}

// What Xlib sends with.
extern "C" ssize_t writev(int fd, const iovec* parts, int count) {
  static const auto real = next<ssize_t (*)(int, const iovec*, int)>("writev");
  ++counts().calls;
  hasAsked = true;
  return real(fd, parts, count);
}

// The rest is only counted.
#define COUNTED(result, name, parameters, arguments)            \
  extern "C" result name parameters {                           \
    static const auto real = next<result(*) parameters>(#name); \
    ++counts().calls;                                           \
    return real arguments;                                      \
  }

COUNTED(ssize_t, read, (int fd, void* to, size_t length), (fd, to, length))
COUNTED(ssize_t, recv, (int fd, void* to, size_t length, int flags), (fd, to, length, flags))
COUNTED(ssize_t, recvmsg, (int fd, msghdr* message, int flags), (fd, message, flags))
COUNTED(ssize_t, write, (int fd, const void* from, size_t length), (fd, from, length))
COUNTED(ssize_t, send, (int fd, const void* from, size_t length, int flags),
        (fd, from, length, flags))
