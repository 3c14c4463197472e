#pragma once

#include <X11/Xlib.h>
#include <X11/extensions/XShm.h>

#include <functional>
#include <string>
#include <vector>

namespace bench {

// Something that happens on a desktop at a steady rate.
struct Workload {
  std::string name;
  double perSecond;  // 0: nothing at all
  std::function<void(int step)> step;
};

// Draws the workloads on a screen from a connection and window of its own.
class Painter {
 public:
  explicit Painter(const std::string& display);
  ~Painter();
  Painter(const Painter&) = delete;
  Painter& operator=(const Painter&) = delete;

  std::vector<Workload> workloads();
  Display* display() { return display_; }
  // A rectangle of another colour each time, flushed.
  void dab(int x, int y, int width, int height);

 private:
  void image(int step);

  Display* display_;
  Window window_;
  GC gc_;
  XShmSegmentInfo segment_{};
  XImage* image_ = nullptr;
  unsigned long colour_ = 0x102030;
};

}  // namespace bench
