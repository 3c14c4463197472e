#pragma once

#include <optional>

#include "io/FdIo.h"
#include "io/IoHandler.h"
#include "tx/TXDisplay.h"

namespace tx {

// Opens the X display and makes its connection one of the loop's descriptors, so that the loop's
// wait ends when X events arrive: dispatchPending() reads them before the next wait.
class TXDisplayManager : private io::IoHandler {
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
  // io::IoHandler
  void inputReady(io::Io& io) override;

  // Sends what is buffered, if anything is.
  void flush();
  // Reads what has arrived, if anything can have; returns the number of events that are queued.
  int read();

  std::optional<TXDisplay> display_;
  io::FdIo io_;
  // Xlib asks the connection for events whenever it flushes or is asked for them, and while it
  // waits for replies: system calls that are left out while nothing was sent and nothing has
  // arrived.
  unsigned long flushed_ = 0;  // number of the last request that was
  unsigned long read_ = 0;     // number of the last request when events were last read
  bool readable_ = true;
};

}  // namespace tx
