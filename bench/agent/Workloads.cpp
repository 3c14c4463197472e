#include "Workloads.h"

#include <X11/Xutil.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include <cstdint>
#include <stdexcept>

namespace bench {

namespace {

constexpr int kVideoWidth = 640, kVideoHeight = 360;
constexpr int kGlyphWidth = 8, kGlyphHeight = 16;

}  // namespace

Painter::Painter(const std::string& name) : display_(XOpenDisplay(name.c_str())) {
  if (!display_) throw std::runtime_error("can't open display " + name);
  const int screen = DefaultScreen(display_);
  XSetWindowAttributes attributes{};
  attributes.override_redirect = True;
  attributes.background_pixel = 0x203040;
  window_ =
      XCreateWindow(display_, DefaultRootWindow(display_), 0, 0,
                    static_cast<unsigned>(DisplayWidth(display_, screen)),
                    static_cast<unsigned>(DisplayHeight(display_, screen)), 0, CopyFromParent,
                    InputOutput, CopyFromParent, CWOverrideRedirect | CWBackPixel, &attributes);
  XMapRaised(display_, window_);
  gc_ = XCreateGC(display_, window_, 0, nullptr);
  XSetGraphicsExposures(display_, gc_, False);

  image_ = XShmCreateImage(display_, DefaultVisual(display_, screen),
                           static_cast<unsigned>(DefaultDepth(display_, screen)), ZPixmap, nullptr,
                           &segment_, kVideoWidth, kVideoHeight);
  segment_.shmid = shmget(IPC_PRIVATE, static_cast<size_t>(image_->bytes_per_line) * kVideoHeight,
                          IPC_CREAT | 0600);
  segment_.shmaddr = image_->data = static_cast<char*>(shmat(segment_.shmid, nullptr, 0));
  XShmAttach(display_, &segment_);
  XSync(display_, False);
  shmctl(segment_.shmid, IPC_RMID, nullptr);
}

Painter::~Painter() {
  XShmDetach(display_, &segment_);
  image_->data = nullptr;
  XDestroyImage(image_);
  shmdt(segment_.shmaddr);
  XFreeGC(display_, gc_);
  XCloseDisplay(display_);
}

void Painter::dab(int x, int y, int width, int height) {
  colour_ = colour_ * 1664525 + 1013904223;
  XSetForeground(display_, gc_, colour_ & 0xffffff);
  XFillRectangle(display_, window_, gc_, x, y, static_cast<unsigned>(width),
                 static_cast<unsigned>(height));
  XFlush(display_);
}

void Painter::image(int step) {
  auto* pixels = reinterpret_cast<uint32_t*>(image_->data);
  const int stride = image_->bytes_per_line / 4;
  for (int y = 0; y < kVideoHeight; ++y) {
    for (int x = 0; x < kVideoWidth; ++x) {
      pixels[y * stride + x] =
          static_cast<uint32_t>((x + step * 3) * 0x010203 ^ (y + step) * 0x30201);
    }
  }
  XShmPutImage(display_, window_, gc_, image_, 0, 0, 400, 200, kVideoWidth, kVideoHeight, False);
  XSync(display_, False);
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
         XCopyArea(display_, window_, window_, gc_, 200, 100 + kGlyphHeight, 1000,
                   800 - kGlyphHeight, 200, 100);
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
