#include "tx/CutBufferEventHandler.h"

#include <X11/Xatom.h>

#include "tx/TXDisplay.h"

namespace tx {

namespace {

struct CutBuffer {
  uint32_t lastChange = 0;
};

}  // namespace

CutBufferEventHandler::CutBufferEventHandler() : mask_(PropertyChangeMask) {}

void CutBufferEventHandler::handleEvent(const XEvent& event) {
  if (event.type != PropertyNotify || event.xproperty.atom != XA_CUT_BUFFER0) return;
  TXDisplay::part<CutBuffer>().lastChange = static_cast<uint32_t>(event.xproperty.time);
}

uint32_t CutBufferEventHandler::cutBufferTime() {
  return TXDisplay::part<CutBuffer>().lastChange;
}

}  // namespace tx
