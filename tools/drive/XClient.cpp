#include "XClient.h"

#include <X11/Xlib.h>

#include "Session.h"

namespace drive {

struct XClient::State {
  Display* display;
  Window window = None;
};

XClient::XClient(const std::string& display)
    : state_(new State{XOpenDisplay(display.empty() ? nullptr : display.c_str())}) {
  if (!state_->display) throw Failure("the display can't be opened");
}

XClient::~XClient() {
  XCloseDisplay(state_->display);
}

void XClient::showWindow(const rfb::Rect& rect) {
  Display* const display = state_->display;
  XSetWindowAttributes attributes{};
  attributes.override_redirect = True;
  attributes.background_pixel = BlackPixel(display, DefaultScreen(display));
  state_->window = XCreateWindow(
      display, DefaultRootWindow(display), rect.tl.x, rect.tl.y,
      static_cast<unsigned>(rect.width()), static_cast<unsigned>(rect.height()), 0, CopyFromParent,
      InputOutput, CopyFromParent, CWOverrideRedirect | CWBackPixel, &attributes);
  XMapRaised(display, state_->window);
  XSync(display, False);
}

void XClient::paint(bool white) {
  Display* const display = state_->display;
  const int screen = DefaultScreen(display);
  XSetWindowBackground(display, state_->window,
                       white ? WhitePixel(display, screen) : BlackPixel(display, screen));
  XClearWindow(display, state_->window);
  XFlush(display);
}

bool XClient::hasSelectionOwner(const char* selection) const {
  Display* const display = state_->display;
  return XGetSelectionOwner(display, XInternAtom(display, selection, False)) != None;
}

}  // namespace drive
