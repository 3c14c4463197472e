#include "rfb/SimpleUpdateTracker.h"

namespace rfb {

void SimpleUpdateTracker::addCopied(const Region& region, const Point& delta) {
  if (region.isEmpty()) return;
  if (!copied_.isEmpty() && delta == delta_) {
    Region source = region;
    source.translate(-delta);
    if ((source & copied_).isEmpty()) {
      copied_ |= region;
      return;
    }
  }
  flattenCopied();
  copied_ = region;
  delta_ = delta;
}

void SimpleUpdateTracker::addChanged(const Region& region) {
  if (region.isEmpty()) return;
  flattenCopied();
  changed_ |= region;
}

void SimpleUpdateTracker::flattenCopied() {
  if (copied_.isEmpty()) return;
  changed_ |= copied_;
  copied_.clear();
  delta_ = Point();
}

void SimpleUpdateTracker::clear() {
  changed_.clear();
  copied_.clear();
  delta_ = Point();
}

UpdateInfo SimpleUpdateTracker::take() {
  UpdateInfo info;
  info.changed.swap(changed_);
  info.copied.swap(copied_);
  info.delta = delta_;
  clear();
  return info;
}

UpdateInfo SimpleUpdateTracker::take(const Region& clip) {
  UpdateInfo info = take();
  if (!info.copied.isEmpty()) {
    Region movedClip = clip;
    movedClip.translate(info.delta);
    info.changed |= info.copied - movedClip;
    info.copied &= movedClip;
    info.copied &= clip;
    if (info.copied.isEmpty()) info.delta = Point();
  }
  info.changed &= clip;
  return info;
}

}  // namespace rfb
