#pragma once

#include "io/FdManager.h"

namespace os {

// The loop over the thread's descriptor manager. A toolkit whose events do not all show on a
// descriptor derives from it.
class AppLoopImpl {
 public:
  AppLoopImpl();
  virtual ~AppLoopImpl() = default;
  AppLoopImpl(const AppLoopImpl&) = delete;
  AppLoopImpl& operator=(const AppLoopImpl&) = delete;

  virtual void run();
  virtual void quit();

 protected:
  enum class NextWait { kUnlimited, kPoll };

  // Called before every wait, not after quit(). kPoll says that work is left that no descriptor
  // shows: the turn then looks at the descriptors and timers without waiting.
  virtual NextWait beforeWait() { return NextWait::kUnlimited; }

  bool quitting() const { return quitting_; }

 private:
  io::FdManager& manager_;
  bool quitting_ = false;
};

}  // namespace os
