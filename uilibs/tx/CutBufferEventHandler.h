#pragma once

#include <cstdint>

#include "tx/RootEventMask.h"
#include "tx/TXEventHandler.h"

namespace tx {

// Remembers when cut buffer 0 was last changed, as long as one of these exists.
class CutBufferEventHandler : public TXEventHandler {
 public:
  CutBufferEventHandler();

  void handleEvent(const XEvent& event) override;

  // X time of the last change; 0 when none has been seen.
  static uint32_t cutBufferTime();

 private:
  const RootEventMask mask_;
};

}  // namespace tx
