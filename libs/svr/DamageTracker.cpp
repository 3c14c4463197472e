#include "svr/DamageTracker.h"

#include <optional>

#include "tx/CaptureLostException.h"
#include "tx/DamageExtension.h"
#include "tx/ErrorCatcher.h"
#include "tx/FixesExtension.h"
#include "tx/TXDisplay.h"
#include "tx/XErrorLog.h"

namespace svr {

DamageTracker::DamageTracker() {
  Display* display = tx::TXDisplay::display();
  const tx::ErrorCatcher trap;
  damage_.reset(tx::DamageExtension::get()->create(display, tx::TXDisplay::root(),
                                                   XDamageReportDeltaRectangles));
  region_.reset(tx::FixesExtension::get()->createRegion(display, nullptr, 0));
  // A new damage object begins with the whole window.
  subtract();
}

DamageTracker::~DamageTracker() {
  // Other clients may have destroyed it.
  std::optional<tx::ErrorCatcher> trap;
  if (tx::TXDisplay::isOpen()) trap.emplace();
  damage_.reset();
  region_.reset();
}

void DamageTracker::subtract() {
  Display* display = tx::TXDisplay::display();
  subtractSerial_ = NextRequest(display);
  tx::DamageExtension::get()->subtract(display, damage_.get(), None, region_.get());
}

bool DamageTracker::isNewDamage(const XEvent& event) const {
  if (event.type != tx::DamageExtension::get()->eventBase + XDamageNotify) return false;
  const auto& notify = reinterpret_cast<const XDamageNotifyEvent&>(event);
  if (notify.damage != damage_.get()) return false;
  // An event from before the last subtraction tells of damage that this subtraction has taken.
  return static_cast<long>(notify.serial - subtractSerial_) >= 0;
}

rfb::Region DamageTracker::fetch(tx::PixelBufferX11* buffer, bool& isGrabbed) {
  const tx::ErrorCatcher trap;
  subtract();
  isGrabbed = buffer && buffer->requestGrab(region_.get());
  int count = 0;
  XRectangle bounds;
  const tx::XMemory<XRectangle> rects(tx::FixesExtension::get()->fetchRegionAndBounds(
      tx::TXDisplay::display(), region_.get(), &count, &bounds));
  // That was a round trip, so no error is outstanding.
  if (trap.error()) {
    throw tx::CaptureLostException(tx::describeXError(tx::TXDisplay::display(), *trap.error()));
  }
  rfb::Region region;
  if (!rects || count <= 0) return region;
  boxes_.clear();
  for (int i = 0; i < count; ++i) {
    const XRectangle& r = rects.get()[i];
    boxes_.push_back(
        rfb::RgnRect(rfb::Rect(r.x, r.y, r.x + int{r.width}, r.y + int{r.height})).box);
  }
  // The X server delivers them banded.
  region.setBanded(boxes_);
  return region;
}

}  // namespace svr
