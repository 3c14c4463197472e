#pragma once

#include <cstdint>
#include <string>
#include <string_view>

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

  // Replaces the text of cut buffer 0, unless it is longer than the X server takes at once.
  static void store(std::string_view latin1);
  // The text of cut buffer 0, at most kMaxPropertyBytes; empty when there is none.
  static std::string fetch();

 private:
  const RootEventMask mask_;
};

}  // namespace tx
