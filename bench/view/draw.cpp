// Draws on a screen at a steady rate, for measurements of those who watch it: bench-view-draw
// DISPLAY WORKLOAD PER-SECOND SECONDS. Prints the CLOCK_MONOTONIC nanoseconds at which each drawing
// begins, once the X server has done it.

#include <time.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "Canvas.h"

namespace {

using bench::Canvas;

constexpr int kPictureWidth = 1280, kPictureHeight = 720;
constexpr int kLineHeight = 16, kGlyphWidth = 8;
constexpr int kScrollX = 200, kScrollY = 100, kScrollWidth = 1000, kScrollHeight = 800;

int64_t nowNs() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<int64_t>(time.tv_sec) * 1000000000 + time.tv_nsec;
}

class Scene {
 public:
  explicit Scene(const char* display) : canvas_(display, 0xffffff) {}

  void sync() { canvas_.sync(); }

  void dab(int step) {
    canvas_.fill(100, 100, 10, 10, static_cast<unsigned long>(step * 7919) & 0xffffff);
  }
  void glyph(int step) {
    text(100 + step % 100 * kGlyphWidth, 100 + step / 100 % 40 * kLineHeight, 1, step);
  }
  void scroll(int step) {
    canvas_.scroll(kScrollX, kScrollY, kScrollWidth, kScrollHeight, kLineHeight);
    canvas_.fill(kScrollX, kScrollY + kScrollHeight - kLineHeight, kScrollWidth, kLineHeight,
                 0xffffff);
    text(kScrollX, kScrollY + kScrollHeight - 4, kScrollWidth / kGlyphWidth - step % 40, step);
  }
  // A picture with the colours, edges and grain of a photograph, over which the camera moves.
  void video(int step) {
    if (picture_.empty()) paintPicture();
    const int x0 =
        static_cast<int>((std::sin(step * 0.031) + 1) / 2 * (kPictureWidth - Canvas::kImageWidth));
    const int y0 = static_cast<int>((std::cos(step * 0.023) + 1) / 2 *
                                    (kPictureHeight - Canvas::kImageHeight));
    for (int y = 0; y < Canvas::kImageHeight; ++y) {
      std::memcpy(canvas_.row(y), &picture_[static_cast<size_t>((y0 + y) * kPictureWidth + x0)],
                  Canvas::kImageWidth * 4);
    }
    canvas_.putImage(410, 205);
  }

 private:
  void text(int x, int y, int length, int seed) {
    std::string letters;
    for (int i = 0; i < length; ++i) {
      seed = static_cast<int>(static_cast<unsigned>(seed) * 1103515245U + 12345U);
      letters += static_cast<char>('!' + static_cast<unsigned>(seed >> 16) % 90);
    }
    canvas_.text(x, y, letters, 0x202020);
  }

  void paintPicture() {
    picture_.resize(static_cast<size_t>(kPictureWidth) * kPictureHeight);
    unsigned grain = 1;
    for (int y = 0; y < kPictureHeight; ++y) {
      for (int x = 0; x < kPictureWidth; ++x) {
        const double hills = 120 * std::sin(x * 0.011) + 60 * std::sin(x * 0.037 + 1) + 360;
        const double light = std::sin(x * 0.02) * std::cos(y * 0.017) * 30;
        const double leaves = std::sin(x * 0.31 + std::sin(y * 0.23) * 3) * std::cos(y * 0.29) * 24;
        grain = grain * 1664525 + 1013904223;
        const double noise = static_cast<double>(grain >> 24) / 256 * 8 - 4;
        const bool sky = y < hills;
        const auto channel = [&](double base, double depth) {
          const double value = base + light + (sky ? 0 : leaves * depth) + noise + y * 0.05;
          return static_cast<uint32_t>(value < 0 ? 0 : value > 255 ? 255 : value);
        };
        picture_[static_cast<size_t>(y * kPictureWidth + x)] = channel(sky ? 110 : 80, 0.8) << 16 |
                                                               channel(sky ? 150 : 110, 1) << 8 |
                                                               channel(sky ? 205 : 60, 0.6);
      }
    }
  }

  Canvas canvas_;
  std::vector<uint32_t> picture_;
};

}  // namespace

int main(int argc, char** argv) try {
  if (argc != 5) {
    std::fprintf(stderr,
                 "usage: bench-view-draw DISPLAY idle|dab|typing|scrolling|video RATE SECONDS\n");
    return 2;
  }
  const std::string workload = argv[2];
  const double rate = std::atof(argv[3]), seconds = std::atof(argv[4]);
  Scene screen(argv[1]);
  const int64_t begin = nowNs();
  for (int step = 0; rate > 0 && step < rate * seconds; ++step) {
    const int64_t due = begin + static_cast<int64_t>(step / rate * 1e9);
    const timespec at{due / 1000000000, due % 1000000000};
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &at, nullptr);
    const int64_t start = nowNs();
    if (workload == "dab") screen.dab(step);
    if (workload == "typing") screen.glyph(step);
    if (workload == "scrolling") screen.scroll(step);
    if (workload == "video") screen.video(step);
    screen.sync();
    std::printf("%lld\n", static_cast<long long>(start));
    std::fflush(stdout);
  }
  const int64_t end = begin + static_cast<int64_t>(seconds * 1e9);
  const timespec at{end / 1000000000, end % 1000000000};
  clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &at, nullptr);
  return 0;
} catch (const std::runtime_error& e) {
  std::fprintf(stderr, "bench-view-draw: %s\n", e.what());
  return 1;
}
