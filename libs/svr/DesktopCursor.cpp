#include "svr/DesktopCursor.h"

#include "rfb/ArrowCursor.h"
#include "rfb/CursorWithAlpha.h"
#include "svr/SServer.h"
#include "tx/FixesExtension.h"
#include "tx/TXDisplay.h"
#include "tx/XResources.h"

namespace svr {

void DesktopCursor::start(SServer& server) {
  server_ = &server;
  if (usesFixes()) selectInput(true);
  send(true);
}

void DesktopCursor::stop() {
  if (server_ && usesFixes() && tx::TXDisplay::isOpen()) selectInput(false);
  server_ = nullptr;
}

void DesktopCursor::selectInput(bool on) {
  tx::FixesExtension::get()->selectCursorInput(tx::TXDisplay::display(), tx::TXDisplay::root(),
                                               on ? XFixesDisplayCursorNotifyMask : 0);
}

void DesktopCursor::enableFixes() {
  if (!delayed_) return;
  delayed_ = false;
  if (!server_ || !usesFixes()) return;
  selectInput(true);
  send(true);
}

void DesktopCursor::handleEvent(const XEvent& event) {
  if (!server_ || !usesFixes()) return;
  if (event.type != tx::FixesExtension::get()->eventBase + XFixesCursorNotify) return;
  const auto& notify = reinterpret_cast<const XFixesCursorNotifyEvent&>(event);
  // The last of several changes may have been sent for the first of them already.
  if (static_cast<long>(notify.cursor_serial) != lastSerial_) send(false);
}

void DesktopCursor::send(bool force) {
  if (!server_) return;
  if (!usesFixes()) {
    if (!force) return;
    rfb::ArrowCursor arrow{rfb::PixelFormat()};
    server_->setCursor(&arrow);
    return;
  }

  const tx::XMemory<XFixesCursorImage> image(
      tx::FixesExtension::get()->getCursorImage(tx::TXDisplay::display()));
  if (!image) return;
  const long serial = static_cast<long>(image->cursor_serial);
  if (!force && serial == lastSerial_) return;
  rfb::CursorWithAlpha cursor(rfb::Cursor::alphaFormat(), image->width, image->height,
                              rfb::Point(image->xhot, image->yhot));
  cursor.setArgb(image->pixels);
  lastSerial_ = serial;
  server_->setCursor(&cursor);
}

}  // namespace svr
