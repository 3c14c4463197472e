#pragma once

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <stdlib.h>

#include <string>

#include "support/XServer.h"

// Sets a property of one 32-bit item.
inline void setProperty(Display* display, Window window, const char* property, Atom type,
                        long value) {
  XChangeProperty(display, window, XInternAtom(display, property, False), type, 32, PropModeReplace,
                  reinterpret_cast<unsigned char*>(&value), 1);
  XSync(display, False);
}

// Says which process a window belongs to, and of which type it is, such as NORMAL (empty: none).
inline void describe(Display* display, Window window, long pid, const std::string& type) {
  setProperty(display, window, "_NET_WM_PID", XA_CARDINAL, pid);
  if (type.empty()) return;
  const Atom atom = XInternAtom(display, ("_NET_WM_WINDOW_TYPE_" + type).c_str(), False);
  setProperty(display, window, "_NET_WM_WINDOW_TYPE", XA_ATOM, static_cast<long>(atom));
}

// An X client that runs as another user, with a window of its own that says which process it
// belongs to. Needs root and setpriv.
class UserProcess {
 public:
  UserProcess(const support::XServer& server, Display* display, unsigned userId,
              const std::string& xauthority, const std::string& type = "NORMAL")
      : display_(display) {
    const std::string title = "user process " + std::to_string(++count_);
    support::Program::Options options;
    options.environment["XAUTHORITY"] = xauthority;
    program_ =
        server.start({"setpriv", "--reuid", std::to_string(userId), "--clear-groups", "--pdeathsig",
                      "TERM", "xlogo", "-geometry", "20x20+9000+9000", "-title", title},
                     options);
    options.captureErrors = true;
    support::waitFor([&] {
      const std::string text = server.run({"xwininfo", "-int", "-name", title}, options);
      const size_t id = text.find("Window id: ");
      if (id != std::string::npos) window_ = strtoul(text.c_str() + id + 11, nullptr, 10);
      return window_ != None;
    });
    if (isReady()) describe(display_, window_, pid(), type);
  }

  // Its window is there.
  bool isReady() const { return window_ != None; }
  pid_t pid() const { return program_->pid(); }
  Window window() const { return window_; }
  // What the window says.
  void setProcess(long pid) { describe(display_, window_, pid, ""); }
  void end() { program_->end(); }

 private:
  static inline int count_ = 0;
  Display* const display_;
  std::unique_ptr<support::Program> program_;
  Window window_ = None;
};
