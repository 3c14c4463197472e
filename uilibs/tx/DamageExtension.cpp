#include "tx/DamageExtension.h"

#include "tx/TXDisplay.h"

namespace tx {

const DamageExtension* DamageExtension::get() {
  const DamageExtension& extension = TXDisplay::part<DamageExtension>();
  return extension.present_ ? &extension : nullptr;
}

DamageExtension::DamageExtension() : present_(query(TXDisplay::display())) {}

bool DamageExtension::query(Display* display) {
  return library_.ok() && queryExtension(display, &eventBase, &errorBase) &&
         queryVersion(display, &majorVersion, &minorVersion);
}

}  // namespace tx
