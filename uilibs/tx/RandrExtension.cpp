#include "tx/RandrExtension.h"

#include <utility>

#include "plat/log/LogSrc.h"
#include "tx/TXDisplay.h"

namespace tx {

RandrExtension& RandrExtension::instance() {
  return TXDisplay::part<RandrExtension>();
}

const RandrExtension* RandrExtension::get() {
  const RandrExtension& extension = instance();
  return extension.present_ ? &extension : nullptr;
}

RandrExtension::RandrExtension() : present_(query(TXDisplay::display())) {}

const RandrExtension* RandrExtension::probe(plat::LogSrc& log) {
  const RandrExtension* const randr = get();
  if (randr) {
    log.info("XRandr extension present - version %d.%d", randr->majorVersion, randr->minorVersion);
  } else {
    log.info("XRandr extension not present - unable to change display modes");
  }
  return randr;
}

bool RandrExtension::query(Display* display) {
  const TXDisplay::Throwing throwing;
  // Asked first because the client library leaks memory when the server lacks the extension.
  return library_.ok() && XQueryExtension(display, "RANDR", &majorOpcode, &eventBase, &errorBase) &&
         queryExtension(display, &eventBase, &errorBase) &&
         queryVersion(display, &majorVersion, &minorVersion) &&
         std::pair(majorVersion, minorVersion) >= std::pair(1, 2);
}

XRRResources RandrExtension::resources(Display* display, Window window, bool fresh) const {
  const bool hasCurrent =
      getScreenResourcesCurrent_ && std::pair(majorVersion, minorVersion) >= std::pair(1, 3);
  return XRRResources(fresh || !hasCurrent ? getScreenResources(display, window)
                                           : getScreenResourcesCurrent_(display, window));
}

void XRRResourcesDeleter::operator()(XRRScreenResources* resources) const {
  RandrExtension::instance().freeScreenResources(resources);
}

void XRRCrtcInfoDeleter::operator()(XRRCrtcInfo* info) const {
  RandrExtension::instance().freeCrtcInfo(info);
}

void XRROutputInfoDeleter::operator()(XRROutputInfo* info) const {
  RandrExtension::instance().freeOutputInfo(info);
}

void XRRModeInfoDeleter::operator()(XRRModeInfo* info) const {
  RandrExtension::instance().freeModeInfo(info);
}

}  // namespace tx
