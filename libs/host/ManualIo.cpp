#include "host/ManualIo.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <utility>

#include "io/IoHandler.h"

namespace host {

short ManualIo::events() const {
  return static_cast<short>(isBlocked() ? POLLIN | POLLOUT : POLLIN);
}

int ManualIo::msUntilNext() {
  if (failure() || deferred_) return 0;
  if (!isBlocked()) return -1;
  const int64_t longest = std::numeric_limits<int>::max();
  return static_cast<int>(std::min(io_.outStream().msUntilTimeout(), longest));
}

void ManualIo::turn(int timeoutMs) {
  if (!handler_) return;
  const int next = msUntilNext();
  if (next >= 0 && (timeoutMs < 0 || next < timeoutMs)) timeoutMs = next;
  pollfd entry{fd(), events(), 0};
  const int found = poll(&entry, 1, timeoutMs);
  if (found < 0 && errno != EINTR) throw plat::SystemException("poll", errno);
  if (isBlocked()) {
    try {
      io_.outStream().flush();
    } catch (const plat::Exception& e) {
      fail(e);
    }
  }
  if (failure()) {
    const plat::Exception reason = *failure();
    handler_->ioFailed(*this, reason);
  } else if (found > 0 && (entry.revents & ~POLLOUT) != 0) {
    handler_->inputReady(*this);
  } else if (std::exchange(deferred_, false)) {
    handler_->deferredCall(*this);
  }
}

}  // namespace host
