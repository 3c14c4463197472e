#pragma once

#include "io/FdManager.h"

namespace io {

// Waits with select(). Handlers whose descriptor is FD_SETSIZE (1024) or above are never polled.
class FdSelectManager : public FdManager {
 public:
  // A thread that has a manager takes only a nested one.
  explicit FdSelectManager(bool nested = false);
  ~FdSelectManager() override;

  void requirePollable(int fd) const override { checkPollable(fd); }
  // For those who have no manager yet.
  static void checkPollable(int fd);

 protected:
  bool wait(int timeoutMs) override;
  void interestChanged(FdHandler& handler, bool read, bool write, bool exceptions) override;

 private:
  HandlerSet wantsRead_;
  HandlerSet wantsWrite_;
  HandlerSet wantsExceptions_;
};

}  // namespace io
