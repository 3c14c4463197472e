#pragma once

#include <vector>

#include "Canvas.h"
#include "Scaling.h"

namespace drive {

// Half blocks in 24-bit colour. Writes only what differs from the picture before.
class BlockCanvas : public Canvas {
 public:
  using Canvas::Canvas;
  void draw(const Picture& picture, const TerminalSize& size) override;

 private:
  // Two pixels, one above the other.
  struct Cell {
    Colour top, bottom;
    bool operator==(const Cell&) const = default;
  };

  TerminalSize size_;
  int columns_ = 0;
  std::vector<Cell> cells_;
};

}  // namespace drive
