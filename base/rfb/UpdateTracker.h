#pragma once

#include "rfb/Point.h"
#include "rfb/Region.h"

namespace rfb {

// What changed on a framebuffer, to be applied as: move first, then redraw.
struct UpdateInfo {
  bool isEmpty() const { return copied.isEmpty() && changed.isEmpty(); }

  Region changed;
  // Destination of a move; its pixels were at copied - delta before.
  Region copied;
  Point delta;
};

// Takes note of changes to a framebuffer.
class UpdateTracker {
 public:
  virtual ~UpdateTracker() = default;

  // The pixels that were at region - delta moved to region.
  virtual void addCopied(const Region& region, const Point& delta) = 0;
  // The pixels of region changed.
  virtual void addChanged(const Region& region) = 0;

 protected:
  UpdateTracker() = default;
  UpdateTracker(const UpdateTracker&) = default;
  UpdateTracker& operator=(const UpdateTracker&) = default;
};

}  // namespace rfb
