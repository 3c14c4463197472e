#pragma once

#include <X11/Xlib.h>

#include <bitset>

namespace svr {

// What an agent has changed at the X server to inject input: keys and buttons that it pressed at
// some time, and whether it keeps auto-repeat off. A property of the root window keeps it, so that
// what an agent leaves behind that had no chance to tidy up can be undone. The display must be
// open.
class InputTrace {
 public:
  // Undoes what a former agent left.
  InputTrace();
  // Everything has been undone.
  ~InputTrace();
  InputTrace(const InputTrace&) = delete;
  InputTrace& operator=(const InputTrace&) = delete;

  // The one of the process's display.
  static InputTrace& get();

  // To be called before the requests that do it.
  void keyPressed(int keycode);
  void buttonPressed(int button);
  void setAutoRepeatOff(bool off);

  // After the connection was lost: undoes over another one what this process left, if the X server
  // still answers. Ends the process with status 1 if that takes too long.
  static void undoAfterLoss();

 private:
  void store() const;

  const Atom property_;
  std::bitset<256> keycodes_;
  std::bitset<32> buttons_;
  bool autoRepeatOff_ = false;
};

}  // namespace svr
