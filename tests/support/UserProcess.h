#pragma once

#include <X11/Xlib.h>
#include <stdlib.h>

#include <string>

#include "support/AppWindow.h"
#include "support/Program.h"

namespace support {

// An X client that runs as another user, with a window of its own that says which process it
// belongs to. Needs root and setpriv.
class UserProcess {
 public:
  // The display, through which the window is looked for, is not owned. An empty type is none.
  UserProcess(Display* display, unsigned userId, const std::string& xauthority,
              const std::string& type = "NORMAL")
      : display_(display),
        title_("user process " + std::to_string(++count_)),
        program_({"setpriv", "--reuid", std::to_string(userId), "--clear-groups", "--pdeathsig",
                  "TERM", "xlogo", "-geometry", "20x20+9000+9000", "-title", title_},
                 options(display, xauthority)) {
    ready_ = waitFor([this] { return (window_ = find()) != None; });
    if (!ready_) return;
    setProcess(pid());
    setWindowType(display_, window_, type);
  }

  // Its window is there.
  bool isReady() const { return ready_; }
  pid_t pid() const { return program_.pid(); }
  Window window() const { return window_; }
  // What the window says.
  void setProcess(long pid) {
    setProperty(display_, window_, "_NET_WM_PID", XA_CARDINAL, pid);
    XSync(display_, False);
  }
  void end() { program_.end(); }

 private:
  static Program::Options options(Display* display, const std::string& xauthority) {
    Program::Options options;
    options.environment["DISPLAY"] = DisplayString(display);
    if (xauthority.empty()) {
      options.environment["XAUTHORITY"] = std::nullopt;
    } else {
      options.environment["XAUTHORITY"] = xauthority;
    }
    return options;
  }

  Window find() const {
    Window root = None, parent = None, found = None, *children = nullptr;
    unsigned count = 0;
    XQueryTree(display_, DefaultRootWindow(display_), &root, &parent, &children, &count);
    for (unsigned i = 0; i < count && found == None; ++i) {
      char* name = nullptr;
      if (!XFetchName(display_, children[i], &name) || !name) continue;
      if (name == title_) found = children[i];
      XFree(name);
    }
    if (children) XFree(children);
    return found;
  }

  static inline int count_ = 0;
  Display* const display_;
  const std::string title_;
  Program program_;
  Window window_ = None;
  bool ready_ = false;
};

}  // namespace support
