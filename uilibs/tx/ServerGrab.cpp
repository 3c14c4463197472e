#include "tx/ServerGrab.h"

#include <X11/Xlib.h>

#include "plat/config/BoolParameter.h"
#include "tx/TXDisplay.h"

namespace tx {

namespace {

plat::BoolParameter noGrab("_NoGrab", "", false);

}  // namespace

ServerGrab::ServerGrab() : grabbed_(!noGrab.value() && TXDisplay::isOpen()) {
  if (grabbed_) XGrabServer(TXDisplay::display());
}

ServerGrab::~ServerGrab() {
  if (!grabbed_) return;
  TXDisplay::attempt([] {
    XUngrabServer(TXDisplay::display());
    // Nobody else is served until it arrives.
    XFlush(TXDisplay::display());
  });
}

}  // namespace tx
