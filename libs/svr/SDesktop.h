#pragma once

#include <cstdint>

#include "rfb/Rect.h"

namespace rfb {
class PixelFormat;
}

namespace svr {

class SServer;

// What the server asks of a desktop. Everything is called on the main thread.
class SDesktop {
 public:
  virtual ~SDesktop() = default;

  // A press (down) or release of an X keysym.
  virtual void keyEvent(uint32_t keysym, bool down) {
    static_cast<void>(keysym);
    static_cast<void>(down);
  }
  // The pointer is at position with the buttons of mask held (bit 0 is the left one). When
  // relative, position is an offset from where the pointer is.
  virtual void pointerEvent(const rfb::Point& position, uint32_t buttonMask, bool relative) {
    static_cast<void>(position);
    static_cast<void>(buttonMask);
    static_cast<void>(relative);
  }

  // Releases the keys and buttons that keyEvent() and pointerEvent() hold; stop() does so, too.
  virtual void releaseInput() {}

  // Begins capture; the server hears of everything until stop(). Throws plat::Exception when
  // capture cannot work; the desktop is then stopped.
  virtual void start(SServer& server) = 0;
  virtual void stop() = 0;
  // The server wants an update as soon as something changes.
  virtual void framebufferUpdateRequest() = 0;
  // The area that is, or would be, captured, in root window coordinates.
  virtual rfb::Rect getRect() = 0;
  // Leaves the format as it is when the desktop has none of its own.
  virtual void getPixelFormat(rfb::PixelFormat& format) { static_cast<void>(format); }
};

}  // namespace svr
