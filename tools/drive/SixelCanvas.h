#pragma once

#include "Canvas.h"
#include "Scaling.h"

namespace drive {

// Sixel pictures, when this program has the library for them.
class SixelCanvas : public Canvas {
 public:
  // False when it was built without.
  static bool isAvailable();

  using Canvas::Canvas;
  void draw(const Picture& picture, const TerminalSize& size) override;

 private:
  TerminalSize size_;
  Extent extent_;
};

}  // namespace drive
