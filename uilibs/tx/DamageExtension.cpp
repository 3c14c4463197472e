#include "tx/DamageExtension.h"

#include "tx/TXDisplay.h"

namespace tx {

const DamageExtension* DamageExtension::get() {
  static DamageExtension extension;
  static unsigned generation = 0;
  static bool present = false;
  if (generation != TXDisplay::generation()) {
    generation = TXDisplay::generation();
    present = extension.query(TXDisplay::display());
  }
  return present ? &extension : nullptr;
}

bool DamageExtension::query(Display* display) {
  return library_.ok() && queryExtension(display, &eventBase, &errorBase) &&
         queryVersion(display, &majorVersion, &minorVersion);
}

}  // namespace tx
