#include "io/FdPollManager.h"

#include <algorithm>
#include <cerrno>

#include "plat/Exception.h"

namespace io {

FdPollManager::FdPollManager(bool nested) : FdManager(nested) {}

FdPollManager::~FdPollManager() {
  unregisterAll();
}

void FdPollManager::interestChanged(FdHandler& handler, bool read, bool write, bool exceptions) {
  std::erase_if(interests_, [&](const Interest& i) { return i.handler == &handler; });
  const int events = (read ? POLLIN : 0) | (write ? POLLOUT : 0) | (exceptions ? POLLPRI : 0);
  if (events != 0) interests_.push_back({&handler, static_cast<short>(events)});
}

bool FdPollManager::wait(int timeoutMs) {
  polled_.clear();
  for (const Interest& interest : interests_) {
    polled_.push_back({interest.handler->fd(), interest.events, 0});
  }
  const int ready = poll(polled_.data(), polled_.size(), timeoutMs);
  if (ready < 0 && errno != EINTR) throw plat::SystemException("poll", errno);
  if (ready <= 0) return false;
  for (size_t i = 0; i < polled_.size(); ++i) {
    const auto [handler, wanted] = interests_[i];
    // Errors and hang-ups are reported unasked; reading or writing tells what they are.
    const int found = polled_[i].revents;
    const int broken = found & (POLLERR | POLLHUP | POLLNVAL);
    const int wantsIn = wanted & (POLLIN | POLLPRI);
    if (wantsIn != 0 && ((found & wanted & (POLLIN | POLLPRI)) != 0 || broken != 0)) {
      readReady_.insert(*handler);
    }
    if ((wanted & POLLOUT) != 0 && ((found & POLLOUT) != 0 || broken != 0)) {
      writeReady_.insert(*handler);
    }
  }
  return true;
}

}  // namespace io
