#pragma once

#include <X11/Xatom.h>
#include <X11/Xlib.h>

#include <string>

namespace support {

// A window that says which process it belongs to, as a program's window does.
class AppWindow {
 public:
  // An empty type sets none.
  AppWindow(Display* display, Window parent, long pid, const std::string& type = "NORMAL")
      : display_(display), id_(XCreateSimpleWindow(display, parent, 0, 0, 10, 10, 0, 0, 0)) {
    set("_NET_WM_PID", XA_CARDINAL, pid);
    if (!type.empty()) {
      set("_NET_WM_WINDOW_TYPE", XA_ATOM,
          static_cast<long>(XInternAtom(display, ("_NET_WM_WINDOW_TYPE_" + type).c_str(), False)));
    }
    XSync(display, False);
  }
  ~AppWindow() {
    XDestroyWindow(display_, id_);
    XSync(display_, False);
  }
  AppWindow(const AppWindow&) = delete;
  AppWindow& operator=(const AppWindow&) = delete;

  Window id() const { return id_; }
  // Sets a property of one 32-bit item.
  void set(const char* property, Atom type, long value) {
    XChangeProperty(display_, id_, XInternAtom(display_, property, False), type, 32,
                    PropModeReplace, reinterpret_cast<unsigned char*>(&value), 1);
  }

 private:
  Display* display_;
  Window id_;
};

}  // namespace support
