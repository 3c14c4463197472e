#pragma once

#include <X11/Xlib.h>

#include <cstdint>
#include <functional>

namespace tx {

// The process's one connection to the X server with what the toolkit needs of its default screen.
// All functions belong to the main thread.
class TXDisplay {
 public:
  // Opens the display (null: the one named by DISPLAY); does nothing when one is open. Retries once
  // with XAUTHLOCALHOSTNAME set to "localhost". Installs the process-wide X error handlers.
  // Throws plat::Exception when the display cannot be opened.
  static void open(const char* name = nullptr);
  // Runs the atClose() functions and closes the connection.
  static void close();

  // Open and not lost: requests may be made.
  static bool isOpen();
  // The connection broke. The object stays until close(), but no request may be made.
  static bool isLost();
  // Counts the openings; what is cached about a server is valid for one generation.
  static unsigned generation();
  // Runs once when this display closes, before the connection does. Latest first.
  static void atClose(std::function<void()> function);

  // The rest needs a display that has been opened (asserted), lost or not.
  static Display* display();
  static int screen();
  static Window root();
  static Visual* visual();
  static int depth();
  static Colormap colourMap();
  static unsigned long blackPixel();
  static unsigned long whitePixel();
  static GC defaultGC();
  static XFontStruct* font();

  // The X server's button for buttons 1..8 at indices 0..7. At most 8 are kept; the number that the
  // pointer has is returned.
  static constexpr int kMaxButtons = 8;
  static int pointerButtons(uint8_t map[kMaxButtons]);

  TXDisplay() = delete;
};

}  // namespace tx
