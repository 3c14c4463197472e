#pragma once

#include <vector>

#include "rfb/Region.h"
#include "tx/PixelBufferX11.h"
#include "tx/XResources.h"

namespace svr {

// The damage of the root window, collected by the X server until it is fetched.
class DamageTracker {
 public:
  // Begins with no damage. DAMAGE and XFIXES must be present.
  DamageTracker();
  ~DamageTracker();
  DamageTracker(const DamageTracker&) = delete;
  DamageTracker& operator=(const DamageTracker&) = delete;

  // Whether the event tells of damage that has not been fetched yet.
  bool isNewDamage(const XEvent& event) const;

  // All damage since the last call, in root coordinates. With a buffer (may be null), its pixels
  // there are refreshed on the way where it can do that; isGrabbed is then set. One round trip for
  // all. Throws tx::CaptureLostException when another X client has destroyed what this takes.
  rfb::Region fetch(tx::PixelBufferX11* buffer, bool& isGrabbed);

 private:
  void subtract();

  tx::XFixesRegion region_;
  tx::XDamageHandle damage_;
  unsigned long subtractSerial_ = 0;
  std::vector<mi::Box> boxes_;  // kept for its memory
};

}  // namespace svr
