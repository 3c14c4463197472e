#include "support/InputWitness.h"

#include <X11/Xutil.h>

#include <clocale>
#include <stdexcept>

#include "plat/Exception.h"

namespace support {

InputWitness::InputWitness(const std::string& display) : display_(connectTo(display)) {
  setlocale(LC_CTYPE, "C.UTF-8");
  XSetLocaleModifiers("@im=none");
  Display* const d = display_.get();
  const int screen = DefaultScreen(d);
  window_ = XCreateSimpleWindow(d, RootWindow(d, screen), 0, 0,
                                static_cast<unsigned>(DisplayWidth(d, screen)),
                                static_cast<unsigned>(DisplayHeight(d, screen)), 0, 0, 0);
  XSelectInput(d, window_,
               KeyPressMask | KeyReleaseMask | ButtonPressMask | ButtonReleaseMask |
                   PointerMotionMask | ExposureMask);
  XMapRaised(d, window_);
  XEvent event;
  XWindowEvent(d, window_, ExposureMask, &event);
  XSetInputFocus(d, window_, RevertToPointerRoot, CurrentTime);
  method_ = XOpenIM(d, nullptr, nullptr, nullptr);
  context_ = method_ ? XCreateIC(method_, XNInputStyle, XIMPreeditNothing | XIMStatusNothing,
                                 XNClientWindow, window_, XNFocusWindow, window_, nullptr)
                     : nullptr;
  if (!context_) throw std::runtime_error("no input context");
  XSetICFocus(context_);
  take();
}

InputWitness::~InputWitness() {
  XDestroyIC(context_);
  XCloseIM(method_);
}

std::string InputWitness::describeKey(XKeyEvent& event) {
  KeySym keysym = NoSymbol;
  char ignored[64];
  XLookupString(&event, ignored, sizeof ignored, &keysym, nullptr);
  // Xlib would leak the name of a character beyond Latin-1.
  const char* const name = keysym < 0x1000000 ? XKeysymToString(keysym) : nullptr;
  std::string text = event.type == KeyPress ? "+" : "-";
  text += name ? name : plat::format("U%04lX", keysym - 0x1000000);
  text += " " + std::to_string(event.keycode);
  if (event.state & 0xff) text += " ";
  for (unsigned i = 0; i < 8; ++i) {
    if (event.state >> i & 1) text += "SLC12345"[i];
  }
  return text;
}

void InputWitness::addText(XKeyEvent& event) {
  char buffer[64];
  KeySym keysym;
  Status status;
  const int n = Xutf8LookupString(context_, &event, buffer, sizeof buffer, &keysym, &status);
  if (status == XLookupChars || status == XLookupBoth) text_.append(buffer, static_cast<size_t>(n));
}

std::vector<std::string> InputWitness::take() {
  text_.clear();
  std::vector<std::string> seen;
  // What other clients have asked for before now is done when the second one returns.
  XSync(display(), False);
  XSync(display(), False);
  while (XPending(display()) > 0) {
    XEvent event;
    XNextEvent(display(), &event);
    // A key of number 0 is the result of composing.
    if ((event.type == KeyPress || event.type == KeyRelease) && event.xkey.keycode != 0) {
      seen.push_back(describeKey(event.xkey));
    }
    if (XFilterEvent(&event, None)) continue;
    if (event.type == KeyPress) addText(event.xkey);
    if (event.type == ClientMessage) answer(event);
    if (event.type == MappingNotify) XRefreshKeyboardMapping(&event.xmapping);
    if (event.type == ButtonPress || event.type == ButtonRelease) {
      seen.push_back((event.type == ButtonPress ? "+" : "-") +
                     std::to_string(event.xbutton.button));
    }
    if (event.type == MotionNotify) {
      seen.push_back(plat::format("%d,%d", event.xmotion.x_root, event.xmotion.y_root));
    }
  }
  return seen;
}

void InputWitness::answerPings() {
  Atom ping = XInternAtom(display(), "_NET_WM_PING", False);
  XSetWMProtocols(display(), window_, &ping, 1);
  XSync(display(), False);
}

void InputWitness::answer(XEvent event) {
  Display* const d = display();
  if (static_cast<Atom>(event.xclient.data.l[0]) != XInternAtom(d, "_NET_WM_PING", False)) return;
  event.xclient.window = DefaultRootWindow(d);
  XSendEvent(d, DefaultRootWindow(d), False, SubstructureRedirectMask | SubstructureNotifyMask,
             &event);
  XSync(d, False);
}

std::string InputWitness::waitForText(size_t length) {
  std::string all;
  waitFor([&] {
    take();
    all += text_;
    return all.size() >= length;
  });
  return all;
}

}  // namespace support
