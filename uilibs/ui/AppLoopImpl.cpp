#include "ui/AppLoopImpl.h"

#include "os/AppLoop.h"
#include "plat/log/LogSrc.h"
#include "tx/TXDisplay.h"

namespace ui {

namespace {

plat::LogSrc vlog("AgentAppX11");

}  // namespace

AppLoopImpl::AppLoopImpl(bool withDisplay, const char* displayName)
    : displayManager_(withDisplay ? std::make_unique<tx::TXDisplayManager>(displayName) : nullptr) {
}

AppLoopImpl::NextWait AppLoopImpl::beforeWait() {
  if (!displayManager_) return NextWait::kUnlimited;
  const bool more = displayManager_->dispatchPending();
  if (tx::TXDisplay::isLost()) {
    vlog.error("Lost connection to X display");
    os::AppLoop::quit(1);
  }
  return more ? NextWait::kPoll : NextWait::kUnlimited;
}

}  // namespace ui
