#pragma once

#include <poll.h>

#include <vector>

#include "io/FdManager.h"

namespace io {

// Waits with poll(): descriptors may have any number, as they do in servers.
class FdPollManager : public FdManager {
 public:
  // A thread that has a manager takes only a nested one.
  explicit FdPollManager(bool nested = false);
  ~FdPollManager() override;

 protected:
  void interestChanged(FdHandler& handler, bool read, bool write, bool exceptions) override;
  bool wait(int timeoutMs) override;

 private:
  struct Interest {
    FdHandler* handler;
    short events;
  };

  std::vector<Interest> interests_;
  std::vector<pollfd> polled_;  // of the wait at hand, in the same order
};

}  // namespace io
