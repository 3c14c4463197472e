#include "tx/ServerTime.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>

#include <optional>

#include "plat/log/LogSrc.h"
#include "tx/Atoms.h"
#include "tx/ErrorCatcher.h"
#include "tx/TXDisplay.h"
#include "tx/TXWindow.h"

namespace tx {

namespace {

plat::LogSrc vlog("TXWindow");

// A hidden window whose property is changed for the sake of the notification.
class TimeWindow : private TXWindow {
 public:
  // Nothing when the notification does not come: other clients can destroy the window, and give the
  // property another type.
  std::optional<uint32_t> ask() {
    Display* const display = TXDisplay::display();
    isAsking_ = true;
    // Appending nothing changes nothing, and is announced with the time all the same.
    const unsigned char nothing = 0;
    ErrorCatcher trap;
    XChangeProperty(display, id(), property_, XA_INTEGER, 32, PropModeAppend, &nothing, 0);
    trap.failed();

    std::optional<uint32_t> time;
    XEvent event;
    while (TXDisplay::isOpen() && XCheckTypedWindowEvent(display, id(), PropertyNotify, &event)) {
      if (event.xproperty.atom != property_ || event.xproperty.send_event) continue;
      time = static_cast<uint32_t>(event.xproperty.time);
    }
    isAsking_ = false;
    return trap.error() ? std::nullopt : time;
  }

 private:
  bool wants(const XEvent& event) override {
    const bool isOurs = event.type == PropertyNotify && event.xproperty.atom == property_;
    return (isOurs && isAsking_) || TXWindow::wants(event);
  }

  const Atom property_ = internAtom("TIMESTAMP");
  bool isAsking_ = false;
};

struct Clock {
  std::optional<TimeWindow> window;
};

}  // namespace

uint32_t getServerTime() {
  if (!TXDisplay::isOpen()) return CurrentTime;
  std::optional<TimeWindow>& window = TXDisplay::part<Clock>().window;
  if (!window) window.emplace();
  if (const std::optional<uint32_t> time = window->ask()) return *time;
  if (!TXDisplay::isOpen()) return CurrentTime;
  window.emplace();
  if (const std::optional<uint32_t> time = window->ask()) return *time;
  if (TXDisplay::isOpen()) vlog.error("Unable to get the X server's time");
  return CurrentTime;
}

}  // namespace tx
