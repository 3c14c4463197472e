#pragma once

#include <X11/Xlib.h>
#include <X11/extensions/XShm.h>

#include <cstdint>
#include <string>

namespace bench {

// A connection of its own with a window over the whole screen, and what draws there: a graphics
// context, and an image in shared memory.
class Canvas {
 public:
  static constexpr int kImageWidth = 640, kImageHeight = 360;

  // Throws std::runtime_error when there is no such display.
  Canvas(const std::string& display, unsigned long background);
  ~Canvas();
  Canvas(const Canvas&) = delete;
  Canvas& operator=(const Canvas&) = delete;

  Display* display() const { return display_; }
  void sync() { XSync(display_, False); }

  void fill(int x, int y, int width, int height, unsigned long pixel);
  // Moves an area up by some lines.
  void scroll(int x, int y, int width, int height, int lines);
  void text(int x, int y, const std::string& letters, unsigned long pixel);
  // A row of the image, and all of it on the screen.
  uint32_t* row(int y);
  void putImage(int x, int y);

 private:
  Display* display_;
  Window window_;
  GC gc_;
  XShmSegmentInfo segment_{};
  XImage* image_;
};

}  // namespace bench
