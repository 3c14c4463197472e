#pragma once

#include <optional>

#include "io/FdIo.h"
#include "io/IoHandler.h"
#include "tx/TXDisplay.h"

namespace tx {

// Opens the X display and makes its connection one of the loop's descriptors, so that the loop's
// wait ends when X events arrive. Nothing is read here: dispatchPending() does it before each wait.
class TXDisplayManager : public io::IoHandler {
 public:
  // Opens the display of that name (null: DISPLAY) for as long as this object lives, unless one is
  // open. Throws plat::Exception.
  explicit TXDisplayManager(const char* displayName = nullptr);

  // Sends buffered requests and dispatches the events that are pending now, so that a flood of them
  // leaves the loop its other work. Returns whether more have arrived meanwhile.
  bool dispatchPending();

 private:
  std::optional<TXDisplay> display_;
  io::FdIo io_;
};

}  // namespace tx
