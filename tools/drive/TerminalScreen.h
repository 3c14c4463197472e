#pragma once

#include <signal.h>
#include <termios.h>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "plat/FileDescriptor.h"

namespace drive {

// In characters and in pixels.
struct TerminalSize {
  int columns = 80, rows = 24;
  int width = 0, height = 0;
  bool operator==(const TerminalSize&) const = default;
};

// What a terminal has said of its pictures.
struct TerminalGraphics {
  bool kitty = false;
  bool sixel = false;
  int sixelColours = 16;                        // of one picture
  int maxSixelWidth = 0, maxSixelHeight = 0;    // in pixels; 0: not told
  int widthWhenAsked = 0, heightWhenAsked = 0;  // of the whole terminal in pixels; 0: not told
};

// The terminal on standard output, for pictures: its other screen, without a cursor, and without an
// echo of what is typed. It is as it was when the object goes. One at a time.
class TerminalScreen {
 public:
  // Asks the terminal what it can do, and waits a second for the answer.
  TerminalScreen();
  ~TerminalScreen();
  TerminalScreen(const TerminalScreen&) = delete;
  TerminalScreen& operator=(const TerminalScreen&) = delete;

  const TerminalGraphics& graphics() const { return graphics_; }
  TerminalSize size() const;
  // Whether SIGTSTP has come. It does not stop the program while there is a screen; who has given
  // the screen up raises it once more.
  bool isStopWanted() const;

  void put(std::string_view text) { text_ += text; }
  // Writes what has been put, and waits for a terminal that takes nothing just now. False when it
  // takes no more, or has not within a second since the program was interrupted.
  bool flush();

 private:
  using Clock = std::chrono::steady_clock;

  void ask();
  // Until the terminal takes something. False when it is not worth waiting any longer.
  bool waitUntilWritable();

  std::string text_;
  // The terminal once more, not blocking: others have standard output, too.
  plat::FileDescriptor output_;
  std::optional<Clock::time_point> patienceEnd_;  // once interrupted

  TerminalGraphics graphics_;
  TerminalSize sizeWhenAsked_;
  struct sigaction formerStop_ {};
  termios former_{};
  bool isQuiet_ = false;  // former_ is to be restored
};

}  // namespace drive
