#pragma once

#include <string_view>

#include "Picture.h"
#include "TerminalScreen.h"

namespace drive {

// Shows pictures on a terminal, each in the place of the one before.
class Canvas {
 public:
  // The screen is not owned; who draws flushes it.
  explicit Canvas(TerminalScreen& screen) : screen_(screen) {}
  virtual ~Canvas() = default;
  Canvas(const Canvas&) = delete;
  Canvas& operator=(const Canvas&) = delete;
  virtual void draw(const Picture& picture, const TerminalSize& size) = 0;

 protected:
  void put(std::string_view text) { screen_.put(text); }
  const TerminalGraphics& graphics() const { return screen_.graphics(); }

 private:
  TerminalScreen& screen_;
};

}  // namespace drive
