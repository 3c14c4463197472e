#pragma once

#include <memory>

#include "io/FdIo.h"
#include "io/IoHandler.h"

namespace tx {

// Opens the X display and makes its connection one of the loop's descriptors, so that the loop's
// wait ends when X events arrive. Nothing is read here: dispatchPending() does it before each wait.
class TXDisplayManager : public io::IoHandler {
 public:
  // Opens the display of that name (null: DISPLAY) unless one is open; the display that it opened
  // is closed by its destructor. Throws plat::Exception.
  explicit TXDisplayManager(const char* displayName = nullptr);
  ~TXDisplayManager() override;

  // Sends buffered requests and dispatches the events that are pending now, so that a flood of them
  // leaves the loop its other work. Returns whether more have arrived meanwhile.
  bool dispatchPending();

 private:
  const bool opened_;
  std::unique_ptr<io::FdIo> io_;
};

}  // namespace tx
