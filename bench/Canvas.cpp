#include "Canvas.h"

#include <X11/Xutil.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include <stdexcept>

namespace bench {

Canvas::Canvas(const std::string& name, unsigned long background)
    : display_(XOpenDisplay(name.c_str())) {
  if (!display_) throw std::runtime_error("can't open display " + name);
  const int screen = DefaultScreen(display_);
  XSetWindowAttributes attributes{};
  attributes.override_redirect = True;
  attributes.background_pixel = background;
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
                           &segment_, kImageWidth, kImageHeight);
  segment_.shmid = shmget(IPC_PRIVATE, static_cast<size_t>(image_->bytes_per_line) * kImageHeight,
                          IPC_CREAT | 0600);
  segment_.shmaddr = image_->data = static_cast<char*>(shmat(segment_.shmid, nullptr, 0));
  XShmAttach(display_, &segment_);
  XSync(display_, False);
  shmctl(segment_.shmid, IPC_RMID, nullptr);
}

Canvas::~Canvas() {
  XShmDetach(display_, &segment_);
  image_->data = nullptr;
  XDestroyImage(image_);
  shmdt(segment_.shmaddr);
  XFreeGC(display_, gc_);
  XCloseDisplay(display_);
}

void Canvas::fill(int x, int y, int width, int height, unsigned long pixel) {
  XSetForeground(display_, gc_, pixel);
  XFillRectangle(display_, window_, gc_, x, y, static_cast<unsigned>(width),
                 static_cast<unsigned>(height));
}

void Canvas::scroll(int x, int y, int width, int height, int lines) {
  XCopyArea(display_, window_, window_, gc_, x, y + lines, static_cast<unsigned>(width),
            static_cast<unsigned>(height - lines), x, y);
}

void Canvas::text(int x, int y, const std::string& letters, unsigned long pixel) {
  XSetForeground(display_, gc_, pixel);
  XDrawString(display_, window_, gc_, x, y, letters.data(), static_cast<int>(letters.size()));
}

uint32_t* Canvas::row(int y) {
  return reinterpret_cast<uint32_t*>(image_->data) +
         static_cast<ptrdiff_t>(y) * (image_->bytes_per_line / 4);
}

void Canvas::putImage(int x, int y) {
  XShmPutImage(display_, window_, gc_, image_, 0, 0, x, y, kImageWidth, kImageHeight, False);
}

}  // namespace bench
