#pragma once

#include <memory>
#include <optional>

#include "plat/String.h"
#include "plat/shm/SharedMemPermissions.h"
#include "plat/timer/Timer.h"
#include "svr/ChangeFinder.h"
#include "svr/DesktopCursor.h"
#include "svr/MonitorSelection.h"
#include "svr/SDesktop.h"
#include "svr/input/InputQueue.h"
#include "svr/input/SKeyboardX11.h"
#include "svr/input/SPointerX11.h"
#include "tx/CaptureLostException.h"
#include "tx/PixelBufferX11.h"
#include "tx/RootEventMask.h"
#include "tx/TXEventHandler.h"

namespace svr {

// The X desktop: captures the root window, or the selected monitors, into shared memory, follows
// the screen's size and its monitors, reports its bell, and has parts that find changes, follow the
// cursor, and inject keys and pointer events. The display must be open.
class SDesktopX11 : public SDesktop,
                    private plat::Timer::Callback,
                    private tx::TXEventHandler,
                    private ChangeFinder::Callback {
 public:
  // memoryOwner says who is to own shared memory (nobody else while its user id is -1); it is
  // neither owned nor read before start(). In service mode old X servers get time until somebody
  // has logged in before cursors are tracked.
  SDesktopX11(const plat::SharedMemPermissions& memoryOwner, bool serviceMode);
  ~SDesktopX11() override;

  void keyEvent(uint32_t keysym, bool down) override;
  void pointerEvent(const rfb::Point& position, uint32_t buttonMask, bool relative) override;
  void releaseInput() override;
  void start(SServer& server) override;
  void stop() override;
  void framebufferUpdateRequest() override;
  rfb::Rect getRect() override;
  void getPixelFormat(rfb::PixelFormat& format) override;

  // The server's choice of monitors, see MonitorSelection.
  void setMonitorSelection(const plat::String& selection);
  // Another user owns the desktop now.
  void desktopOwnerChanged() { cursor_.desktopOwnerChanged(); }

 private:
  // plat::Timer::Callback
  void timerCallback(plat::Timer& timer) override;
  // tx::TXEventHandler
  void handleEvent(const XEvent& event) override;
  // ChangeFinder::Callback
  void collectingChanges() override;
  void captureLost() override;

  void startParts();
  void teardown();
  void selectBell(bool on);
  void buildBuffer();
  // Publishes the buffer; returns why it could not be filled, if so.
  std::optional<tx::CaptureLostException> publish();
  void rebuild();

  const plat::SharedMemPermissions& memoryOwner_;
  SServer* server_ = nullptr;  // null while stopped

  DesktopCursor cursor_;
  ChangeFinder changes_;
  const bool hasRandr_;
  int xkbEventBase_ = -1;
  tx::RootEventMask rootEvents_;
  std::unique_ptr<tx::PixelBufferX11> buffer_;
  plat::Timer rebuildTimer_{this};
  MonitorSelection selection_;
  SKeyboardX11 keyboard_;
  SPointerX11 pointer_{&cursor_};
  InputQueue input_{keyboard_, pointer_};
};

}  // namespace svr
