#include "tx/XTestExtension.h"

#include <X11/extensions/XTest.h>

#include "tx/TXDisplay.h"

namespace tx {

const XTestExtension& XTestExtension::get() {
  static XTestExtension extension;
  static unsigned generation = 0;
  if (generation == TXDisplay::generation()) return extension;
  generation = TXDisplay::generation();
  extension = XTestExtension();
  Display* const display = TXDisplay::display();
  int eventBase = 0;
  int errorBase = 0;
  extension.isPresent = XTestQueryExtension(display, &eventBase, &errorBase,
                                            &extension.majorVersion, &extension.minorVersion);
  if (extension.isPresent) XTestGrabControl(display, True);
  return extension;
}

}  // namespace tx
