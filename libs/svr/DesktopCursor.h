#pragma once

#include <X11/Xlib.h>

#include <cstdint>

#include "plat/timer/Timer.h"

#include "svr/input/SPointerX11.h"

namespace svr {

class SServer;

// Tells the server of the X cursor: its image at first and whenever it changes, or a built-in arrow
// where the X server does not tell what the cursor looks like; and where it is.
class DesktopCursor : public SPointerX11Callback, private plat::Timer::Callback {
 public:
  // Says in the log whether XFIXES is present, and whether its use for cursors must wait until the
  // desktop has an owner, as some old X servers need in service mode.
  explicit DesktopCursor(bool serviceMode);

  // Whether XFIXES is present and to be used.
  bool hasFixes() const { return hasFixes_; }

  // Sends the present image and follows changes until stop(). The server is not owned.
  void start(SServer& server);
  void stop();
  void handleEvent(const XEvent& event);
  // Sends the present image. Unless forced, only a real one that was not the last one sent.
  void send(bool force);

  // Another user owns the desktop now.
  void desktopOwnerChanged();

 private:
  // plat::Timer::Callback
  void timerCallback(plat::Timer& timer) override;
  // SPointerX11Callback
  void pointerPosition(int x, int y) override;
  void pointerMoved() override;

  bool usesFixes() const { return hasFixes_ && !delayed_; }
  void selectInput(bool on);
  void sendImage(bool force);

  const bool hasFixes_;
  bool delayed_;
  SServer* server_ = nullptr;      // null while stopped
  int64_t lastSerial_ = -1;        // the cursor's that was last sent
  unsigned long lastRequest_ = 0;  // the number of the request that last fetched an image
  bool toldTooLarge_ = false;      // since an image was last sent
  // Other clients choose how often the cursor changes: asking for it takes at most half of the
  // time, a fifth where it is for nothing.
  plat::Timer pause_{this};
  bool changedInPause_ = false;
};

}  // namespace svr
