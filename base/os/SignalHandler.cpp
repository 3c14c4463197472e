#include "os/SignalHandler.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <vector>

#include "plat/Exception.h"

namespace os {

namespace {

// All that the signal context touches.
std::atomic<bool> pending[NSIG];
std::atomic<io::FdKicker*> kicker = nullptr;
std::atomic<int> alarmFd = -1;
static_assert(std::atomic<bool>::is_always_lock_free);
static_assert(std::atomic<io::FdKicker*>::is_always_lock_free);

extern "C" void catchSignal(int signal) {
  pending[signal] = true;
  if (io::FdKicker* wake = kicker) wake->kick();
  const int fd = alarmFd;
  if (fd < 0) return;
  const int savedErrno = errno;
  const uint64_t one = 1;
  // Full is as good as written.
  static_cast<void>(!write(fd, &one, sizeof one));
  errno = savedErrno;
}

}  // namespace

SignalHandler& SignalHandler::instance() {
  static SignalHandler handler;
  return handler;
}

SignalHandler::SignalHandler() : kicker_(this) {
  kicker = &kicker_;
}

SignalHandler::~SignalHandler() {
  while (!caught_.empty()) remove(caught_.begin()->first);
  kicker = nullptr;
}

void SignalHandler::add(int signal, Callback* callback) {
  if (const auto found = caught_.find(signal); found != caught_.end()) {
    found->second.callback = callback;
    return;
  }
  struct sigaction action = {};
  action.sa_handler = catchSignal;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  Caught caught{callback, {}};
  if (sigaction(signal, &action, &caught.former) < 0) {
    throw plat::SystemException("sigaction", errno);
  }
  caught_.emplace(signal, caught);
}

void SignalHandler::remove(int signal) {
  const auto found = caught_.find(signal);
  if (found == caught_.end()) return;
  sigaction(signal, &found->second.former, nullptr);
  pending[signal] = false;
  caught_.erase(found);
}

void SignalHandler::remove(Callback* callback) {
  std::vector<int> signals;
  for (const auto& [signal, caught] : caught_) {
    if (caught.callback == callback) signals.push_back(signal);
  }
  for (int signal : signals) remove(signal);
}

void SignalHandler::setAlarm(int fd) {
  alarmFd = fd;
}

std::string SignalHandler::name(int signal) {
  const char* abbreviation = sigabbrev_np(signal);
  return abbreviation ? std::string("SIG") + abbreviation : plat::format("signal %d", signal);
}

void SignalHandler::kicked(io::FdKicker&) {
  for (int signal = 1; signal < NSIG; ++signal) {
    if (!pending[signal].exchange(false)) continue;
    const auto found = caught_.find(signal);
    if (found != caught_.end()) found->second.callback->gotSignal(signal);
  }
}

}  // namespace os
