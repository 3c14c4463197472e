#pragma once

#include "svr/Watchdog.h"
#include "ui/AppLoopImpl.h"

namespace svr {

// The agent's loop: tells the watchdog of its turns, and goes on when something had no memory.
class AgentLoop : public ui::AppLoopImpl {
 public:
  // The watchdog is not owned. Throws plat::Exception when the X display cannot be opened.
  explicit AgentLoop(Watchdog& watchdog) : watchdog_(watchdog) {}

  void run() override;

 protected:
  NextWait beforeWait() override;

 private:
  Watchdog& watchdog_;
};

}  // namespace svr
