#include "os/AppLoop.h"

#include <utility>

#include "os/AppLoopImpl.h"
#include "plat/Assert.h"

namespace os {

namespace {

AppLoop* inst = nullptr;

}  // namespace

AppLoop::AppLoop(std::unique_ptr<AppLoopImpl> impl) : impl_(std::move(impl)) {
  PLAT_ASSERT(!inst);
  inst = this;
}

AppLoop::~AppLoop() {
  impl_.reset();
  inst = nullptr;
}

AppLoop* AppLoop::instance() {
  return inst;
}

int AppLoop::run() {
  impl_->run();
  return quitCode_;
}

void AppLoop::quit(int code) {
  PLAT_ASSERT(inst);
  inst->quitCode_ = code;
  if (inst->impl_) inst->impl_->quit();
}

}  // namespace os
