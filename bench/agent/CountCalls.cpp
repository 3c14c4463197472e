// Preloaded into the agent: counts the calls that a benchmark wants to know of, in the shared file
// that RUVO_CALL_COUNTS names.

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <unistd.h>

#include <cstdlib>

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

template <typename Function>
Function next(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" int select(int nfds, fd_set* reads, fd_set* writes, fd_set* exceptions,
                      timeval* timeout) noexcept(noexcept(::select(0, nullptr, nullptr, nullptr,
                                                                   nullptr))) {
  static const auto real = next<int (*)(int, fd_set*, fd_set*, fd_set*, timeval*)>("select");
  ++counts().selects;
  if (timeout && timeout->tv_sec == 0 && timeout->tv_usec == 0) ++counts().zeroSelects;
  return real(nfds, reads, writes, exceptions, timeout);
}

extern "C" int poll(pollfd* fds, nfds_t count, int timeoutMs) {
  static const auto real = next<int (*)(pollfd*, nfds_t, int)>("poll");
  ++counts().roundTrips;
  return real(fds, count, timeoutMs);
}
