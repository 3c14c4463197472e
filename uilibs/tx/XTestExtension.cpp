#include "tx/XTestExtension.h"

#include <X11/extensions/XTest.h>

#include "tx/TXDisplay.h"

namespace tx {

const XTestExtension& XTestExtension::get() {
  return TXDisplay::part<XTestExtension>();
}

XTestExtension::XTestExtension() {
  Display* const display = TXDisplay::display();
  int eventBase = 0;
  int errorBase = 0;
  isPresent = XTestQueryExtension(display, &eventBase, &errorBase, &majorVersion, &minorVersion);
  if (isPresent) XTestGrabControl(display, True);
}

}  // namespace tx
