#include "tx/CutBufferEventHandler.h"

#include <X11/Xatom.h>

#include <utility>

#include "tx/PropertyBytes.h"
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

void CutBufferEventHandler::store(std::string_view latin1) {
  if (!fitsInRequest(latin1.size())) return;
  XStoreBytes(TXDisplay::display(), latin1.data(), static_cast<int>(latin1.size()));
}

std::string CutBufferEventHandler::fetch() {
  PropertyBytes bytes = readProperty(TXDisplay::root(), XA_CUT_BUFFER0, false);
  return bytes.type == XA_STRING && bytes.format == 8 ? std::move(bytes.data) : std::string();
}

}  // namespace tx
