#pragma once

#include <memory>
#include <optional>

#include "plat/String.h"
#include "plat/shm/SharedMemPermissions.h"
#include "plat/timer/Timer.h"
#include "rfb/Region.h"
#include "svr/DamageTest.h"
#include "svr/DamageTestCallback.h"
#include "svr/DamageTracker.h"
#include "svr/DesktopCursor.h"
#include "svr/MonitorList.h"
#include "svr/MonitorSelectCallback.h"
#include "svr/MonitorSelectResponse.h"
#include "svr/SDesktop.h"
#include "svr/UpdateScheduler.h"
#include "svr/input/SKeyboardX11.h"
#include "svr/input/SPointerX11.h"
#include "tx/PixelBufferX11.h"
#include "tx/RootEventMask.h"
#include "tx/TXEventHandler.h"
#include "tx/WindowPosTracker.h"

namespace svr {

// The X desktop: captures the root window, or the selected monitors, into shared memory, learns of
// changes from the DAMAGE extension or by polling, and follows the screen's size, its monitors and
// the cursor. The display must be open.
class SDesktopX11 : public SDesktop,
                    private plat::Timer::Callback,
                    private tx::TXEventHandler,
                    private UpdateScheduler::Callback,
                    private UpdateScheduler::PreUpdateHook,
                    private tx::WindowPosTracker,
                    private DamageTestCallback,
                    private MonitorSelectCallback,
                    private SPointerX11Callback {
 public:
  // The application around the desktop. monitorsUpdated() is called after each (re)build of the
  // capture buffer.
  class Callback : public MonitorSelectResponse {
   public:
    // Text from a viewer: UTF-8, without terminator.
    virtual void clientCutText(const char* text, size_t length) = 0;
    // Whether capture misses changes.
    virtual void captureBroken(bool broken) = 0;
    // The owner of new shared memory; null while unknown.
    virtual const plat::SharedMemPermissions* sharedMemPermissions() = 0;
  };

  // Neither owned nor called before start(). In service mode old X servers get time until somebody
  // has logged in before cursors are tracked.
  SDesktopX11(Callback* callback, bool serviceMode);
  ~SDesktopX11() override;

  void keyEvent(uint32_t keysym, bool down) override;
  void pointerEvent(const rfb::Point& position, uint32_t buttonMask, bool relative) override;
  void clientCutText(const char* text, size_t length) override;
  void start(SServer& server) override;
  void stop() override;
  void framebufferUpdateRequest() override;
  rfb::Rect getRect() override;
  void getPixelFormat(rfb::PixelFormat& format) override;

  MonitorSelectCallback& monitorSelect() { return *this; }

  // Cursors are not tracked yet because no window manager has been seen.
  bool isWaitingForWindowManager() const { return cursor_.delayed(); }
  void windowManagerStarted() { cursor_.enableFixes(); }

 private:
  // plat::Timer::Callback
  void timerCallback(plat::Timer& timer) override;
  // tx::TXEventHandler
  void handleEvent(const XEvent& event) override;
  // UpdateScheduler::Callback
  bool isUpdateWanted() override;
  void performUpdate(const rfb::UpdateInfo& update) override;
  // UpdateScheduler::PreUpdateHook
  void preUpdate() override;
  // tx::WindowPosTracker
  void windowMoved(const rfb::Rect& from, const rfb::Rect& to) override;
  // DamageTestCallback
  void collectDamageNow() override;
  void damageTestResult(DamageTest& test, bool any, bool all, bool nonFull) override;
  // MonitorSelectCallback
  bool setMonitorSelection(const plat::String& selection) override;
  // SPointerX11Callback
  void pointerPosition(int x, int y) override;
  void pointerMoved() override;

  static bool probeFixes();
  static bool delayFixesCursors(bool serviceMode);

  void startParts();
  void teardown();
  void stopDamage();
  void selectBell(bool on);

  // The area to capture; stores the text that chose it, null for everything.
  rfb::Rect captureRect(const MonitorList& monitors, plat::String* inForce) const;
  rfb::Rect selectedRect(const MonitorList& monitors, const plat::String& selection) const;
  void buildBuffer();
  void rebuild();

  bool tryDamage();
  void startDamageTest();
  void startPolling();

  Callback* callback_;
  SServer* server_ = nullptr;  // null while stopped

  const bool hasFixes_;
  DesktopCursor cursor_;
  const bool hasDamage_;
  const bool hasRandr_;
  int xkbEventBase_ = -1;

  tx::RootEventMask rootEvents_;
  std::unique_ptr<tx::PixelBufferX11> buffer_;
  UpdateScheduler scheduler_;
  std::optional<DamageTracker> damage_;
  std::unique_ptr<DamageTest> damageTest_;
  rfb::Region pendingRegion_;
  plat::Timer pollTimer_;
  plat::Timer rebuildTimer_;
  plat::String selection_;
  SKeyboardX11 keyboard_;
  SPointerX11 pointer_;
};

}  // namespace svr
