#include "tx/DamageExtension.h"

#include "plat/log/LogSrc.h"
#include "tx/TXDisplay.h"

namespace tx {

const DamageExtension* DamageExtension::get() {
  const DamageExtension& extension = TXDisplay::part<DamageExtension>();
  return extension.present_ ? &extension : nullptr;
}

DamageExtension::DamageExtension() : present_(query(TXDisplay::display())) {}

const DamageExtension* DamageExtension::probe(plat::LogSrc& log, bool use) {
  const DamageExtension* const damage = use ? get() : nullptr;
  if (damage) {
    log.info("XDamage extension present - version %d.%d", damage->majorVersion,
             damage->minorVersion);
  } else {
    log.info("XDamage disabled / not present - unable to optimize capture");
  }
  return damage;
}

bool DamageExtension::query(Display* display) {
  const TXDisplay::Throwing throwing;
  return library_.ok() && queryExtension(display, &eventBase, &errorBase) &&
         queryVersion(display, &majorVersion, &minorVersion);
}

}  // namespace tx
