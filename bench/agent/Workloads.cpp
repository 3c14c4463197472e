#include "Workloads.h"

namespace bench {

namespace {

constexpr int kGlyphWidth = 8, kGlyphHeight = 16;

}  // namespace

Painter::Painter(const std::string& display) : canvas_(display, 0x203040) {}

void Painter::dab(int x, int y, int width, int height) {
  colour_ = colour_ * 1664525 + 1013904223;
  canvas_.fill(x, y, width, height, colour_ & 0xffffff);
  XFlush(canvas_.display());
}

void Painter::image(int step) {
  for (int y = 0; y < Canvas::kImageHeight; ++y) {
    uint32_t* const pixels = canvas_.row(y);
    for (int x = 0; x < Canvas::kImageWidth; ++x) {
      pixels[x] = static_cast<uint32_t>((x + step * 3) * 0x010203 ^ (y + step) * 0x30201);
    }
  }
  canvas_.putImage(400, 200);
  canvas_.sync();
}

std::vector<Workload> Painter::workloads() {
  return {
      {"idle", 0, [](int) {}},
      {"caret", 2, [this](int) { dab(100, 100, 2, kGlyphHeight); }},
      {"typing", 15,
       [this](int step) {
         dab(100 + step % 80 * kGlyphWidth, 100 + step / 80 % 30 * kGlyphHeight, kGlyphWidth,
             kGlyphHeight);
       }},
      {"scrolling", 30,
       [this](int step) {
         canvas_.scroll(200, 100, 1000, 800, kGlyphHeight);
         for (int column = 0; column < 60; ++column) {
           dab(200 + (column * 17 + step) % 120 * kGlyphWidth, 900 - kGlyphHeight, kGlyphWidth,
               kGlyphHeight);
         }
       }},
      {"video", 30, [this](int step) { image(step); }},
      {"full screen", 30, [this](int) { dab(0, 0, 1920, 1080); }},
  };
}

}  // namespace bench
