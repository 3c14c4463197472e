#include "tx/input/XTestExtension.h"

#include <X11/extensions/XTest.h>

#include "plat/log/LogSrc.h"
#include "tx/TXDisplay.h"

namespace tx {

const XTestExtension& XTestExtension::get() {
  return TXDisplay::part<XTestExtension>();
}

XTestExtension::XTestExtension() {
  const TXDisplay::Throwing throwing;
  Display* const display = TXDisplay::display();
  int eventBase = 0;
  int errorBase = 0;
  isPresent = XTestQueryExtension(display, &eventBase, &errorBase, &majorVersion, &minorVersion);
  if (isPresent) XTestGrabControl(display, True);
}

const XTestExtension& XTestExtension::probe(plat::LogSrc& log) {
  const XTestExtension& xtest = get();
  if (xtest.isPresent) {
    log.info("XTest extension present - version %d.%d", xtest.majorVersion, xtest.minorVersion);
  } else {
    log.info(
        "XTest extension not present - unable to inject events or display while server is grabbed");
  }
  return xtest;
}

}  // namespace tx
