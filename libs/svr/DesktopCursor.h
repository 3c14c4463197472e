#pragma once

#include <X11/Xlib.h>

namespace svr {

class SServer;

// Sends the image of the X cursor to the server, at first and whenever it changes, or a built-in
// arrow where the X server does not tell what the cursor looks like.
class DesktopCursor {
 public:
  // withFixes: XFIXES is present. delayed: it is not to be used for cursors before enableFixes().
  DesktopCursor(bool withFixes, bool delayed) : withFixes_(withFixes), delayed_(delayed) {}

  // Sends the present image and follows changes until stop(). The server is not owned.
  void start(SServer& server);
  void stop();
  void handleEvent(const XEvent& event);
  // Sends the present image. Unless forced, only a real one that was not the last one sent.
  void send(bool force);

  // Waiting for enableFixes().
  bool delayed() const { return delayed_; }
  void enableFixes();

 private:
  bool usesFixes() const { return withFixes_ && !delayed_; }
  void selectInput(bool on);

  const bool withFixes_;
  bool delayed_;
  SServer* server_ = nullptr;
  long lastSerial_ = -1;
};

}  // namespace svr
