#pragma once

#include "Canvas.h"

namespace drive {

// Pictures by Kitty's terminal graphics protocol.
class KittyCanvas : public Canvas {
 public:
  using Canvas::Canvas;
  ~KittyCanvas() override;
  void draw(const Picture& picture, const TerminalSize& size) override;

 private:
  TerminalSize size_;
};

}  // namespace drive
