#pragma once

#include <X11/Xlib.h>

#include <string>
#include <vector>

#include "support/XServer.h"

namespace support {

// Another client: a window over the whole screen with the keyboard's focus, which notes the input
// that it gets, and composes as toolkits do.
class InputWitness {
 public:
  explicit InputWitness(const std::string& display);
  ~InputWitness();
  InputWitness(const InputWitness&) = delete;
  InputWitness& operator=(const InputWitness&) = delete;

  Display* display() const { return display_.get(); }

  // What the X server has sent since the last call, one text an event:
  //   "+A 38 S" and "-A 38 S": the key 38 pressed and released, its keysym, and the modifiers held
  //   before (letters of "SLC12345", Shift to Mod5);
  //   "+1" and "-1": a button; "10,20": a motion.
  std::vector<std::string> take();
  // Answers from now on in take() when it is asked whether it has handled its events.
  void answerPings();
  // The text that the keys of the last take() made, in UTF-8.
  const std::string& text() const { return text_; }
  // The text of so many bytes, or of 10 s.
  std::string waitForText(size_t length);

 private:
  std::string describeKey(XKeyEvent& event);
  void addText(XKeyEvent& event);
  void answer(XEvent event);

  XConnection display_;
  Window window_;
  XIM method_;
  XIC context_;
  std::string text_;
};

}  // namespace support
