#include "tx/FixesExtension.h"

#include "plat/log/LogSrc.h"
#include "tx/TXDisplay.h"

namespace tx {

const FixesExtension* FixesExtension::get() {
  const FixesExtension& extension = TXDisplay::part<FixesExtension>();
  return extension.present_ ? &extension : nullptr;
}

FixesExtension::FixesExtension() : present_(query(TXDisplay::display())) {}

const FixesExtension* FixesExtension::probe(plat::LogSrc& log, bool use) {
  const FixesExtension* const fixes = use ? get() : nullptr;
  if (fixes) {
    log.info("XFixes extension present - version %d.%d", fixes->majorVersion, fixes->minorVersion);
  } else {
    log.info("XFixes disabled / not present - unable to track cursor changes");
  }
  return fixes;
}

bool FixesExtension::query(Display* display) {
  const TXDisplay::Throwing throwing;
  return library_.ok() &&
         XQueryExtension(display, "XFIXES", &majorOpcode, &eventBase, &errorBase) &&
         queryExtension(display, &eventBase, &errorBase) &&
         queryVersion(display, &majorVersion, &minorVersion) && majorVersion >= 2;
}

}  // namespace tx
