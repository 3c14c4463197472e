#pragma once

#include <memory>

#include "os/AppLoopImpl.h"
#include "tx/TXDisplayManager.h"

namespace ui {

// The loop of a program with an X connection: X events are dispatched before every wait. When the
// connection is lost the loop quits with status 1.
class AppLoopImpl : public os::AppLoopImpl {
 public:
  // Opens the X display (null: DISPLAY) unless withDisplay is false. Throws plat::Exception when it
  // cannot be opened.
  explicit AppLoopImpl(bool withDisplay = true, const char* displayName = nullptr);

 protected:
  NextWait beforeWait() override;

 private:
  const std::unique_ptr<tx::TXDisplayManager> displayManager_;  // null without a display
};

}  // namespace ui
