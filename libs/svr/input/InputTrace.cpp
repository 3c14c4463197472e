#include "svr/input/InputTrace.h"

#include <X11/Xatom.h>
#include <X11/extensions/XTest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <memory>

#include "plat/log/LogSrc.h"
#include "tx/Atoms.h"
#include "tx/TXDisplay.h"
#include "tx/XResources.h"

namespace svr {

namespace {

plat::LogSrc vlog("SKeyboardX11");

// On the root window. 32-bit numbers: whether auto-repeat is off, the buttons, the keycodes.
constexpr const char* kProperty = "_RUVO_INPUT";
constexpr size_t kKeyWords = 8;
constexpr size_t kWords = 2 + kKeyWords;
constexpr unsigned kMaxButton = 10;

constexpr unsigned kUndoTimeoutS = 2;

using Words = std::array<unsigned long, kWords>;

bool readProperty(Display* display, Atom property, Words* words) {
  Atom type = None;
  int format = 0;
  unsigned long count = 0, left = 0;
  unsigned char* data = nullptr;
  const int status = XGetWindowProperty(display, DefaultRootWindow(display), property, 0, kWords,
                                        False, XA_CARDINAL, &type, &format, &count, &left, &data);
  const tx::XMemory<unsigned char> memory(data);
  if (status != Success || type != XA_CARDINAL || format != 32 || count != kWords) return false;
  std::copy_n(reinterpret_cast<const unsigned long*>(data), kWords, words->begin());
  return true;
}

// Releases keys and buttons that are down, and gives auto-repeat back.
void undo(Display* display, const Words& words) {
  int ignored;
  if (XTestQueryExtension(display, &ignored, &ignored, &ignored, &ignored)) {
    char down[32];
    XQueryKeymap(display, down);
    for (unsigned keycode = 8; keycode < 256; ++keycode) {
      if ((words[2 + keycode / 32] >> keycode % 32 & 1) && (down[keycode / 8] >> keycode % 8 & 1)) {
        XTestFakeKeyEvent(display, keycode, False, CurrentTime);
      }
    }
    for (unsigned button = 1; button <= kMaxButton; ++button) {
      if (words[1] >> button & 1) XTestFakeButtonEvent(display, button, False, CurrentTime);
    }
  }
  if (words[0] & 1) XAutoRepeatOn(display);
}

// Returns whether there was anything to undo.
bool undoStored(Display* display, Atom property) {
  Words words;
  if (!readProperty(display, property, &words)) return false;
  undo(display, words);
  XDeleteProperty(display, DefaultRootWindow(display), property);
  return true;
}

}  // namespace

InputTrace& InputTrace::get() {
  return tx::TXDisplay::part<InputTrace>();
}

InputTrace::InputTrace() : property_(tx::internAtom(kProperty)) {
  if (undoStored(tx::TXDisplay::display(), property_)) {
    vlog.info("Released the keys and buttons that a former agent left");
  }
}

InputTrace::~InputTrace() {
  tx::TXDisplay::attempt(
      [this] { XDeleteProperty(tx::TXDisplay::display(), tx::TXDisplay::root(), property_); });
}

void InputTrace::keyPressed(int keycode) {
  const auto bit = static_cast<size_t>(keycode);
  if (keycodes_.test(bit)) return;
  keycodes_.set(bit);
  store();
}

void InputTrace::buttonPressed(int button) {
  const auto bit = static_cast<size_t>(button);
  if (buttons_.test(bit)) return;
  buttons_.set(bit);
  store();
}

void InputTrace::setAutoRepeatOff(bool off) {
  if (autoRepeatOff_ == off) return;
  autoRepeatOff_ = off;
  store();
}

void InputTrace::store() const {
  Words words{};
  words[0] = autoRepeatOff_ ? 1 : 0;
  words[1] = buttons_.to_ulong();
  for (size_t keycode = 0; keycode < keycodes_.size(); ++keycode) {
    if (keycodes_.test(keycode)) words[2 + keycode / 32] |= 1ul << keycode % 32;
  }
  XChangeProperty(tx::TXDisplay::display(), tx::TXDisplay::root(), property_, XA_CARDINAL, 32,
                  PropModeReplace, reinterpret_cast<const unsigned char*>(words.data()), kWords);
}

void InputTrace::undoAfterLoss() {
  // An X server that hangs while it is connected to would keep us for ever.
  signal(SIGALRM, [](int) { _exit(1); });
  alarm(kUndoTimeoutS);
  const std::unique_ptr<Display, int (*)(Display*)> display(XOpenDisplay(nullptr), XCloseDisplay);
  if (display) undoStored(display.get(), XInternAtom(display.get(), kProperty, False));
  alarm(0);
}

}  // namespace svr
