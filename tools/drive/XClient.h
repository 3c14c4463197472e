#pragma once

#include <memory>
#include <string>

#include "rfb/Rect.h"

namespace drive {

// An X program on the desktop, beside the agent: draws what is to be captured.
class XClient {
 public:
  // Empty: the display of DISPLAY. Throws Failure when it can't be opened.
  explicit XClient(const std::string& display);
  ~XClient();

  // Shows a window without a frame, above all others. It goes with the object.
  void showWindow(const rfb::Rect& rect);
  // Fills it with black or white, and lets the X server know.
  void paint(bool white);
  bool hasSelectionOwner(const char* selection) const;

 private:
  struct State;
  const std::unique_ptr<State> state_;
};

}  // namespace drive
