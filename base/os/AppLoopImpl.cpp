#include "os/AppLoopImpl.h"

namespace os {

AppLoopImpl::AppLoopImpl() : manager_(io::FdManager::instance()) {}

void AppLoopImpl::run() {
  while (!quitting_) manager_.process(beforeWait() == NextWait::kPoll ? 0 : -1);
  manager_.runBeforeWait();
}

void AppLoopImpl::quit() {
  quitting_ = true;
  manager_.wake();
}

}  // namespace os
