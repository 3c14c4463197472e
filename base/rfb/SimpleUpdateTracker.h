#pragma once

#include "rfb/UpdateTracker.h"

namespace rfb {

// Collects changes until they are taken. At most one move is pending at a time; a change that
// follows a move, or a move that does not fit the pending one, turns the pending one into a change.
class SimpleUpdateTracker : public UpdateTracker {
 public:
  void addCopied(const Region& region, const Point& delta) override;
  void addChanged(const Region& region) override;

  // Turns a pending move into a change.
  void flattenCopied();

  bool isEmpty() const { return copied_.isEmpty() && changed_.isEmpty(); }
  const Region& changed() const { return changed_; }
  const Region& copied() const { return copied_; }
  const Point& delta() const { return delta_; }
  void clear();

  // Hand out what was collected and empty the tracker. With a clip, nothing outside it is named,
  // and what moved in from outside it counts as changed.
  UpdateInfo take();
  UpdateInfo take(const Region& clip);

 private:
  Region copied_;
  Point delta_;
  Region changed_;
};

}  // namespace rfb
