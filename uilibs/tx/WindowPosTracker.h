#pragma once

#include "rfb/Rect.h"

namespace tx {

// Told when a tx::TXWindow of this process moves or changes its size; see
// TXWindow::setPosTracker(). Rectangles in root coordinates.
class WindowPosTracker {
 public:
  virtual void windowMoved(const rfb::Rect& from, const rfb::Rect& to) = 0;

 protected:
  ~WindowPosTracker() = default;
};

}  // namespace tx
