#include "tx/CutBufferEventHandler.h"

#include <X11/Xatom.h>

#include "tx/TXDisplay.h"

namespace tx {

namespace {

uint32_t lastChange = 0;
unsigned lastGeneration = 0;

}  // namespace

CutBufferEventHandler::CutBufferEventHandler() : mask_(PropertyChangeMask) {}

void CutBufferEventHandler::handleEvent(const XEvent& event) {
  if (event.type != PropertyNotify || event.xproperty.atom != XA_CUT_BUFFER0) return;
  lastChange = static_cast<uint32_t>(event.xproperty.time);
  lastGeneration = TXDisplay::generation();
}

uint32_t CutBufferEventHandler::cutBufferTime() {
  return lastGeneration == TXDisplay::generation() ? lastChange : 0;
}

}  // namespace tx
