#include "svr/AgentLoop.h"

#include <new>

#include "plat/log/LogSrc.h"

namespace svr {

namespace {

plat::LogSrc vlog("AgentAppX11");

}  // namespace

void AgentLoop::run() {
  while (!quitting()) {
    try {
      ui::AppLoopImpl::run();
    } catch (const std::bad_alloc&) {
      // What could not be had is lost with its event, timer or text; the rest need not be.
      vlog.error("Out of memory");
    }
  }
}

AgentLoop::NextWait AgentLoop::beforeWait() {
  watchdog_.loopTurned();
  return ui::AppLoopImpl::beforeWait();
}

}  // namespace svr
