#pragma once

#include <memory>
#include <vector>

#include "plat/shm/SharedMem.h"
#include "rfb/FullFramePixelBuffer.h"
#include "rfb/Region.h"

// A pixel buffer over memory of its own; grabbing copies the screen, another buffer of pixels.
class FakeBuffer : public rfb::FullFramePixelBuffer {
 public:
  FakeBuffer(const rfb::PixelFormat& format, const rfb::Rect& rect, rfb::ColourMap* map = nullptr,
             int stride = 0)
      : FullFramePixelBuffer(format, rect, nullptr, map, stride) {
    pixels_.resize(static_cast<size_t>(stride_ * rect.height() * format.bytesPerPixel()));
    screen = pixels_;
    data_ = pixels_.data();
  }

  void setRect(const rfb::Rect& rect) { rect_ = rect; }
  void grabRegion(const rfb::Region& region) override {
    grabbed.push_back(region);
    pixels_ = screen;
    data_ = pixels_.data();
  }
  plat::SharedMem* getSharedMem() override { return memory.get(); }
  void drawOnScreen(int x, int y) {
    screen[static_cast<size_t>((y - rect_.tl.y) * stride_ + x - rect_.tl.x) *
           static_cast<size_t>(getPF().bytesPerPixel())] ^= 0xFF;
  }

  std::unique_ptr<plat::SharedMem> memory;
  std::vector<rfb::Region> grabbed;
  std::vector<uint8_t> screen;

 private:
  std::vector<uint8_t> pixels_;
};
