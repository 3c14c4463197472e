#include "tx/FixesExtension.h"

#include "tx/TXDisplay.h"

namespace tx {

const FixesExtension* FixesExtension::get() {
  static FixesExtension extension;
  static unsigned generation = 0;
  static bool present = false;
  if (generation != TXDisplay::generation()) {
    generation = TXDisplay::generation();
    present = extension.query(TXDisplay::display());
  }
  return present ? &extension : nullptr;
}

bool FixesExtension::query(Display* display) {
  return library_.ok() && queryExtension(display, &eventBase, &errorBase) &&
         queryVersion(display, &majorVersion, &minorVersion) && majorVersion >= 2;
}

}  // namespace tx
