#include "svr/Watchdog.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <ctime>

#include "plat/Exception.h"
#include "plat/shm/Leftovers.h"

namespace svr {

namespace {

// How often to look while the end is awaited.
constexpr int kLookMs = 250;

int64_t milliseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

}  // namespace

Watchdog::Watchdog(int channel) : alarm_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!alarm_) throw plat::SystemException("eventfd", errno);
  if (channel >= 0) {
    channel_.reset(fcntl(channel, F_DUPFD_CLOEXEC, 0));
    if (!channel_) throw plat::SystemException("dup", errno);
  }
  // Signals are for the loop's thread.
  sigset_t all, former;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &former);
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, static_cast<size_t>(PTHREAD_STACK_MIN) + 64 * 1024);
  const int error = pthread_create(&thread_, &attributes, run, this);
  pthread_attr_destroy(&attributes);
  pthread_sigmask(SIG_SETMASK, &former, nullptr);
  if (error != 0) throw plat::SystemException("pthread_create", error);
}

Watchdog::~Watchdog() {
  over_ = true;
  eventfd_write(alarm_.get(), 1);
  pthread_join(thread_, nullptr);
}

void* Watchdog::run(void* self) {
  static_cast<Watchdog*>(self)->watch();
  return nullptr;
}

bool Watchdog::waitFor(int timeoutMs, bool withChannel) {
  pollfd entries[] = {{alarm_.get(), POLLIN, 0}, {channel_.get(), POLLRDHUP, 0}};
  const bool channelWatched = withChannel && channel_;
  if (poll(entries, channelWatched ? 2 : 1, timeoutMs) <= 0) return false;
  eventfd_t count;
  if (entries[0].revents != 0) eventfd_read(alarm_.get(), &count);
  return true;
}

void Watchdog::watch() {
  while (!waitFor(-1, true)) {
  }
  int64_t lastTurn = milliseconds();
  for (unsigned turns = turns_; !over_;) {
    waitFor(kLookMs, false);
    if (turns != turns_) {
      turns = turns_;
      lastTurn = milliseconds();
    }
    if (!over_ && milliseconds() - lastTurn >= kPatienceMs) end();
  }
}

void Watchdog::end() {
  plat::Leftovers::removeAll();
  constexpr char kLine[] = "ruvoagent: no way to end in time: the X server does not answer\n";
  static_cast<void>(!write(STDERR_FILENO, kLine, sizeof kLine - 1));
  _exit(1);
}

}  // namespace svr
