#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Canvas.h"

namespace bench {

// Something that happens on a desktop at a steady rate.
struct Workload {
  std::string name;
  double perSecond;  // 0: nothing at all
  std::function<void(int step)> step;
};

// Draws the workloads on a screen.
class Painter {
 public:
  explicit Painter(const std::string& display);

  std::vector<Workload> workloads();
  Display* display() { return canvas_.display(); }
  // A rectangle of another colour each time, flushed.
  void dab(int x, int y, int width, int height);

 private:
  void image(int step);

  Canvas canvas_;
  unsigned long colour_ = 0x102030;
};

}  // namespace bench
