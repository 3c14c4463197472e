#include "tx/FixesExtension.h"

#include "tx/TXDisplay.h"

namespace tx {

const FixesExtension* FixesExtension::get() {
  const FixesExtension& extension = TXDisplay::part<FixesExtension>();
  return extension.present_ ? &extension : nullptr;
}

FixesExtension::FixesExtension() : present_(query(TXDisplay::display())) {}

bool FixesExtension::query(Display* display) {
  return library_.ok() && queryExtension(display, &eventBase, &errorBase) &&
         queryVersion(display, &majorVersion, &minorVersion) && majorVersion >= 2;
}

}  // namespace tx
