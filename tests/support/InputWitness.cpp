#include "support/InputWitness.h"

#include <X11/Xutil.h>

#include <clocale>
#include <cstdio>
#include <stdexcept>

namespace support {

namespace {

std::string modifiers(unsigned state) {
  std::string text;
  for (unsigned i = 0; i < 8; ++i) {
    if (state >> i & 1) text += "SLC12345"[i];
  }
  if (const unsigned group = state >> 13 & 3) text += "G" + std::to_string(group + 1);
  return text;
}

std::string keysymName(KeySym keysym) {
  if (keysym >= 0x1000000) {  // Xlib would leak its name
    char name[32];
    snprintf(name, sizeof name, "U%04lX", static_cast<unsigned long>(keysym - 0x1000000));
    return name;
  }
  const char* const name = XKeysymToString(keysym);
  return name ? name : "none";
}

}  // namespace

InputWitness::InputWitness(const std::string& display) : display_(connectTo(display)) {
  setlocale(LC_CTYPE, "C.UTF-8");
  XSetLocaleModifiers("@im=none");
  Display* const d = display_.get();
  const int screen = DefaultScreen(d);
  XSetWindowAttributes attributes{};
  attributes.override_redirect = True;
  attributes.event_mask = KeyPressMask | KeyReleaseMask | ButtonPressMask | ButtonReleaseMask |
                          PointerMotionMask | ExposureMask;
  window_ =
      XCreateWindow(d, RootWindow(d, screen), 0, 0, static_cast<unsigned>(DisplayWidth(d, screen)),
                    static_cast<unsigned>(DisplayHeight(d, screen)), 0, CopyFromParent, InputOutput,
                    nullptr, CWOverrideRedirect | CWEventMask, &attributes);
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
  std::string text = event.type == KeyPress ? "+" : "-";
  text += keysymName(keysym) + " " + std::to_string(event.keycode);
  const std::string held = modifiers(event.state);
  return held.empty() ? text : text + " " + held;
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
    switch (event.type) {
      case KeyPress:
        addText(event.xkey);
        break;
      case ButtonPress:
      case ButtonRelease:
        seen.push_back((event.type == ButtonPress ? "+" : "-") +
                       std::to_string(event.xbutton.button));
        break;
      case MotionNotify:
        seen.push_back(std::to_string(event.xmotion.x_root) + "," +
                       std::to_string(event.xmotion.y_root));
        break;
      case MappingNotify:
        XRefreshKeyboardMapping(&event.xmapping);
        break;
      default:
        break;
    }
  }
  return seen;
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
