#include "tx/CursorImage.h"

// Xlib's own macros for requests of extensions; they use C casts and shadow names.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wpedantic"
#include <X11/Xlibint.h>
#include <X11/extensions/xfixesproto.h>
#undef min
#undef max
#pragma GCC diagnostic pop

#include <new>

#include "plat/Exception.h"
#include "tx/ErrorCatcher.h"
#include "tx/FixesExtension.h"
#include "tx/TXDisplay.h"

namespace tx {

// The client library's function would first allocate whatever the cursor's owner has chosen.
std::optional<CursorImage> CursorImage::fetch() {
  Display* const display = TXDisplay::display();
  const ErrorCatcher trap;
  CursorImage image;
  bool noMemory = false;
  xXFixesGetCursorImageReply reply;

  LockDisplay(display);
  auto* const request = static_cast<xXFixesGetCursorImageReq*>(
      _XGetRequest(display, static_cast<CARD8>(FixesExtension::get()->majorOpcode),
                   sz_xXFixesGetCursorImageReq));
  request->xfixesReqType = X_XFixesGetCursorImage;
  image.request = display->request;
  const bool answered = _XReply(display, reinterpret_cast<xReply*>(&reply), 0, xFalse) != 0;
  if (answered) {
    image.serial = reply.cursorSerial;
    image.width = reply.width;
    image.height = reply.height;
    image.hotspotX = reply.xhot;
    image.hotspotY = reply.yhot;
    const size_t pixels = size_t{reply.width} * reply.height;
    if (!image.isTooLarge() && reply.length == pixels) {
      image.argb.reset(new (std::nothrow) uint32_t[pixels]);
      noMemory = !image.argb;
    }
    if (image.argb) {
      _XRead(display, reinterpret_cast<char*>(image.argb.get()),
             static_cast<long>(pixels * sizeof(uint32_t)));
    } else {
      _XEatDataWords(display, reply.length);
    }
  }
  UnlockDisplay(display);
  if (display->synchandler) (*display->synchandler)(display);

  if (!answered) return std::nullopt;
  if (noMemory) throw plat::Exception("No memory for a cursor of %dx%d", image.width, image.height);
  if (!image.argb && !image.isTooLarge()) return std::nullopt;
  return image;
}

}  // namespace tx
