#pragma once

#include "io/FdManager.h"

namespace io {

// Waits with select(). Handlers whose descriptor is FD_SETSIZE (1024) or above are never polled.
class FdSelectManager : public FdManager {
 public:
  // A thread that has a manager takes only a nested one.
  explicit FdSelectManager(bool nested = false);
  ~FdSelectManager() override;

  bool process(int timeoutMs) override;

  // Throws Exception for a descriptor that would never be polled.
  static void requirePollable(int fd);

  // The milliseconds that select is given: a limited wait is made one longer, so that the timer it
  // waits for is due when it ends.
  static int waitMs(int timeoutMs);

 protected:
  void interestChanged(FdHandler& handler, bool read, bool write, bool exceptions) override;

 private:
  HandlerSet wantsRead_;
  HandlerSet wantsWrite_;
  HandlerSet wantsExceptions_;
};

}  // namespace io
