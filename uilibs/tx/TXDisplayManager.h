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

  // Sends buffered requests and dispatches the events that are pending now, at most 100 and for at
  // most 20 ms, so that a flood of them leaves the loop its other work. Events are read from the
  // connection only when those read before have been dispatched: others hold up their sender.
  // Returns whether some are left that no descriptor shows.
  bool dispatchPending();

 private:
  std::optional<TXDisplay> display_;
  io::FdIo io_;
};

}  // namespace tx
