#pragma once

#include <X11/Xatom.h>
#include <X11/Xlib.h>

#include <string>

namespace support {

// Sets a property of one 32-bit item.
inline void setProperty(Display* display, Window window, const char* property, Atom type,
                        long value) {
  XChangeProperty(display, window, XInternAtom(display, property, False), type, 32, PropModeReplace,
                  reinterpret_cast<unsigned char*>(&value), 1);
}

// Says what kind of window it is, such as NORMAL; an empty type sets none.
inline void setWindowType(Display* display, Window window, const std::string& type) {
  if (type.empty()) return;
  const Atom atom = XInternAtom(display, ("_NET_WM_WINDOW_TYPE_" + type).c_str(), False);
  setProperty(display, window, "_NET_WM_WINDOW_TYPE", XA_ATOM, static_cast<long>(atom));
  XSync(display, False);
}

// A window that says which process it belongs to.
class AppWindow {
 public:
  AppWindow(Display* display, Window parent, long pid)
      : display_(display), id_(XCreateSimpleWindow(display, parent, 0, 0, 10, 10, 0, 0, 0)) {
    setProperty(display, id_, "_NET_WM_PID", XA_CARDINAL, pid);
    setWindowType(display, id_, "NORMAL");
  }
  ~AppWindow() {
    XDestroyWindow(display_, id_);
    XSync(display_, False);
  }
  AppWindow(const AppWindow&) = delete;
  AppWindow& operator=(const AppWindow&) = delete;

  Window id() const { return id_; }

 private:
  Display* display_;
  Window id_;
};

}  // namespace support
