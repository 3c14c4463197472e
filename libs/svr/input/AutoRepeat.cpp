#include "svr/input/AutoRepeat.h"

#include <X11/Xlib.h>

#include "svr/input/InputTrace.h"
#include "tx/TXDisplay.h"

namespace svr {

namespace {

// Between the keys of somebody who types, switching would cost requests and wake every client that
// watches the keyboard.
constexpr int kResumeDelayMs = 3000;

void setMode(int mode) {
  InputTrace::get().setAutoRepeatOff(mode == AutoRepeatModeOff);
  XKeyboardControl control{};
  control.auto_repeat_mode = mode;
  XChangeKeyboardControl(tx::TXDisplay::display(), KBAutoRepeatMode, &control);
}

}  // namespace

AutoRepeat::~AutoRepeat() {
  tx::TXDisplay::attempt([this] { resume(); });
}

void AutoRepeat::suspend() {
  timer_.stop();
  if (suspended_) return;
  XKeyboardState state;
  XGetKeyboardControl(tx::TXDisplay::display(), &state);
  if (state.global_auto_repeat != AutoRepeatModeOn) return;
  suspended_ = true;
  setMode(AutoRepeatModeOff);
}

void AutoRepeat::resumeLater() {
  timer_.start(kResumeDelayMs);
}

void AutoRepeat::resume() {
  timer_.stop();
  if (!suspended_ || !tx::TXDisplay::isOpen()) return;
  suspended_ = false;
  setMode(AutoRepeatModeOn);
}

void AutoRepeat::timerCallback(plat::Timer&) {
  resume();
}

}  // namespace svr
