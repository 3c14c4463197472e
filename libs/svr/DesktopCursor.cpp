#include "svr/DesktopCursor.h"

#include <cstring>

#include "plat/Exception.h"
#include "plat/Time.h"
#include "plat/config/IntParameter.h"
#include "plat/log/LogSrc.h"
#include "rfb/ArrowCursor.h"
#include "rfb/CursorWithAlpha.h"
#include "svr/SServer.h"
#include "tx/CursorImage.h"
#include "tx/FixesExtension.h"
#include "tx/TXDisplay.h"

namespace svr {

namespace {

// Part of the desktop, as far as a reader of the log is concerned.
plat::LogSrc vlog("SDesktopX11");
plat::LogSrc application("AgentAppX11");

enum UseFixes { kFixesOff = 0, kFixesAuto = 1 };

plat::IntParameter useXFixes(
    "UseXFixes",
    "Whether to use the XFixes extension to track cursor changes: 0 = Don't use; 1 = Auto (for "
    "XOrg 1.5.0 to 1.8.2, delay using XFixes in service-mode until login to avoid a bug in some "
    "packages of those releases); 2 = Use if available.",
    kFixesAuto, 0, 2, true);

bool isTooOldBeforeLogin() {
  if (useXFixes.value() != kFixesAuto) return false;
  Display* display = tx::TXDisplay::display();
  const int release = VendorRelease(display);
  if (!strstr(ServerVendor(display), "X.Org") || release < 10499000 || release >= 10900000) {
    return false;
  }
  vlog.info("Temporarily disabling XFixes cursors: X.Org %d too old", release);
  return true;
}

}  // namespace

DesktopCursor::DesktopCursor(bool serviceMode)
    : hasFixes_(tx::FixesExtension::probe(vlog, useXFixes.value() != kFixesOff) != nullptr),
      delayed_(hasFixes_ && serviceMode && isTooOldBeforeLogin()) {}

void DesktopCursor::start(SServer& server) {
  server_ = &server;
  if (usesFixes()) selectInput(true);
  send(true);
}

void DesktopCursor::stop() {
  if (server_ && usesFixes()) tx::TXDisplay::attempt([this] { selectInput(false); });
  pause_.stop();
  server_ = nullptr;
}

void DesktopCursor::selectInput(bool on) {
  tx::FixesExtension::get()->selectCursorInput(tx::TXDisplay::display(), tx::TXDisplay::root(),
                                               on ? XFixesDisplayCursorNotifyMask : 0);
}

void DesktopCursor::desktopOwnerChanged() {
  if (!delayed_) return;
  application.debug("Window manager has started; using XFixes");
  delayed_ = false;
  if (!server_) return;
  selectInput(true);
  send(true);
}

void DesktopCursor::pointerPosition(int x, int y) {
  if (server_) server_->setCursorPos({x, y});
}

void DesktopCursor::pointerMoved() {
  if (server_) server_->localInput();
}

void DesktopCursor::handleEvent(const XEvent& event) {
  if (!server_ || !usesFixes()) return;
  if (event.type != tx::FixesExtension::get()->eventBase + XFixesCursorNotify) return;
  const auto& notify = reinterpret_cast<const XFixesCursorNotifyEvent&>(event);
  // What the X server told before it handed out an image is no news.
  if (static_cast<long>(event.xany.serial - lastRequest_) < 0) return;
  if (static_cast<int64_t>(notify.cursor_serial) == lastSerial_) return;
  if (pause_.isRunning()) {
    changedInPause_ = true;
  } else {
    send(false);
  }
}

void DesktopCursor::send(bool force) {
  if (!server_) return;
  if (!usesFixes()) {
    if (!force) return;
    rfb::ArrowCursor arrow{rfb::PixelFormat()};
    server_->setCursor(&arrow);
    return;
  }

  changedInPause_ = false;
  const int64_t begun = plat::monotonicTime();
  try {
    sendImage(force);
  } catch (const plat::Exception& e) {
    vlog.error("Unable to send the cursor: %s", e.text());
  }
  const int64_t tookMs = (plat::monotonicTime() - begun) / plat::kTicksPerMs;
  if (tookMs > 0) pause_.start(static_cast<int>(toldTooLarge_ ? 4 * tookMs : tookMs));
}

void DesktopCursor::sendImage(bool force) {
  const std::optional<tx::CursorImage> image = tx::CursorImage::fetch();
  if (!image) return;
  lastRequest_ = image->request;
  if (!force && image->serial == lastSerial_) return;
  lastSerial_ = image->serial;
  if (image->isTooLarge()) {
    if (!toldTooLarge_) {
      vlog.info("Not sending a cursor of %dx%d: larger than %d", image->width, image->height,
                tx::CursorImage::kMaxSide);
    }
    toldTooLarge_ = true;
    return;
  }
  toldTooLarge_ = false;
  rfb::CursorWithAlpha cursor(rfb::Cursor::alphaFormat(), image->width, image->height,
                              rfb::Point(image->hotspotX, image->hotspotY));
  cursor.setArgb(image->argb.get());
  server_->setCursor(&cursor);
}

void DesktopCursor::timerCallback(plat::Timer&) {
  if (changedInPause_) send(false);
}

}  // namespace svr
