#include "svr/SDesktopX11.h"

#include <X11/XKBlib.h>

#include "plat/Exception.h"
#include "plat/config/BoolParameter.h"
#include "plat/log/LogSrc.h"
#include "svr/MonitorList.h"
#include "svr/SServer.h"
#include "tx/DamageExtension.h"
#include "tx/RandrExtension.h"
#include "tx/TXDisplay.h"
#include "tx/input/XTestExtension.h"

namespace svr {

namespace {

plat::LogSrc vlog("SDesktopX11");

plat::BoolParameter clipToMonitors("_ClipToMonitors", "", true);

constexpr int kRebuildPauseMs = 1000;

// The log tells of XTEST first.
DesktopCursor makeCursor(bool serviceMode) {
  tx::XTestExtension::probe(vlog);
  return DesktopCursor(serviceMode);
}

}  // namespace

SDesktopX11::SDesktopX11(const plat::SharedMemPermissions& memoryOwner, bool serviceMode)
    : memoryOwner_(memoryOwner),
      cursor_(makeCursor(serviceMode)),
      // Damage is fetched as an XFIXES region.
      changes_(*this, tx::DamageExtension::probe(vlog, cursor_.hasFixes()) != nullptr),
      hasRandr_(tx::RandrExtension::get() != nullptr) {
  const tx::TXDisplay::Throwing throwing;
  int opcode, error, major = XkbMajorVersion, minor = XkbMinorVersion;
  if (!XkbQueryExtension(tx::TXDisplay::display(), &opcode, &xkbEventBase_, &error, &major,
                         &minor)) {
    xkbEventBase_ = -1;
  }
}

SDesktopX11::~SDesktopX11() {
  stop();
}

void SDesktopX11::keyEvent(uint32_t keysym, bool down) {
  input_.keyEvent(keysym, down);
  changes_.desktopUsed();
}

void SDesktopX11::pointerEvent(const rfb::Point& position, uint32_t buttonMask, bool relative) {
  input_.pointerEvent(position, buttonMask, relative);
  changes_.desktopUsed();
}

void SDesktopX11::releaseInput() {
  input_.releaseAll();
}

void SDesktopX11::start(SServer& server) {
  stop();
  server_ = &server;
  selection_.clear();
  try {
    startParts();
  } catch (...) {
    teardown();
    throw;
  }
}

void SDesktopX11::startParts() {
  // Selected before the screen's size is read, so that no change of it goes unseen.
  rootEvents_.set(StructureNotifyMask);
  buildBuffer();
  pointer_.setPolling(true);
  selectBell(true);
  cursor_.start(*server_);
  changes_.start(*server_, *buffer_);
}

void SDesktopX11::stop() {
  if (!server_) return;
  if (buffer_) buffer_->clear();
  teardown();
}

void SDesktopX11::teardown() {
  changes_.stop();
  cursor_.stop();
  rebuildTimer_.stop();
  rootEvents_.set(0);
  pointer_.setPolling(false);
  tx::TXDisplay::attempt([this] {
    selectBell(false);
    // A viewer that goes must not leave a key or button down.
    releaseInput();
  });
  server_->setPixelBuffer(nullptr);
  server_ = nullptr;
  buffer_.reset();
}

void SDesktopX11::selectBell(bool on) {
  if (xkbEventBase_ < 0) return;
  XkbSelectEvents(tx::TXDisplay::display(), XkbUseCoreKbd, XkbBellNotifyMask,
                  on ? XkbBellNotifyMask : 0);
}

void SDesktopX11::framebufferUpdateRequest() {
  changes_.updateRequested();
}

rfb::Rect SDesktopX11::getRect() {
  return buffer_ ? buffer_->getRect() : MonitorList::screenRect();
}

void SDesktopX11::getPixelFormat(rfb::PixelFormat& format) {
  format = tx::PixelBufferX11::pixelFormat(tx::TXDisplay::display(), tx::TXDisplay::visual(),
                                           tx::TXDisplay::depth());
}

void SDesktopX11::setMonitorSelection(const plat::String& selection) {
  if (selection_.choose(selection) && server_) rebuild();
}

void SDesktopX11::buildBuffer() {
  MonitorList monitors;
  bool clip = clipToMonitors.value() && hasRandr_;
  try {
    monitors = MonitorList::query();
  } catch (const plat::Exception& e) {
    vlog.error("Failed to get monitor rects: %s", e.text());
    monitors = MonitorList({MonitorList::screenRect()});
    clip = false;
  }
  const MonitorSelection::Area area = selection_.area(monitors);

  server_->setPixelBuffer(nullptr);
  std::unique_ptr<tx::PixelBufferX11> built;
  try {
    built = std::make_unique<tx::PixelBufferX11>(
        tx::TXDisplay::root(), memoryOwner_.uid == -1 ? nullptr : &memoryOwner_, area.rect);
  } catch (...) {
    if (buffer_) publish();
    throw;
  }
  if (clip) built->setClip(monitors.region());
  changes_.releaseBuffer();
  buffer_.swap(built);
  const std::optional<tx::CaptureLostException> lost = publish();
  server_->monitorsUpdated(monitors.displayInfo(), MonitorSelection::parameter(), area.text);
  changes_.setBuffer(*buffer_);
  if (lost) changes_.captureLost(*lost);
}

std::optional<tx::CaptureLostException> SDesktopX11::publish() {
  try {
    server_->setPixelBuffer(buffer_.get());
  } catch (const tx::CaptureLostException& e) {
    return e;
  }
  return std::nullopt;
}

void SDesktopX11::rebuild() {
  try {
    buildBuffer();
  } catch (const plat::Exception& e) {
    server_->desktopFailure(e);
    if (changes_.isLost()) rebuildTimer_.start(kRebuildPauseMs);
  }
}

void SDesktopX11::timerCallback(plat::Timer&) {
  rebuild();
}

void SDesktopX11::handleEvent(const XEvent& event) {
  if (!server_) return;
  if (event.type == ConfigureNotify) {
    // X servers send one also when only monitors come, go or move. Several at once make one
    // rebuild.
    if (event.xconfigure.window != tx::TXDisplay::root()) return;
    rebuildTimer_.start(0);
    // A smaller screen takes the pointer with it.
    pointer_.screenChanged();
    return;
  }
  if (xkbEventBase_ >= 0 && event.type == xkbEventBase_) {
    const auto& xkbEvent = reinterpret_cast<const XkbAnyEvent&>(event);
    if (xkbEvent.xkb_type == XkbBellNotify) server_->bell();
    return;
  }
  if (!changes_.handleEvent(event)) cursor_.handleEvent(event);
}

void SDesktopX11::captureLost() {
  // While polling, whoever destroys it all the time must not keep us busy with building.
  rebuildTimer_.start(changes_.isPolling() ? kRebuildPauseMs : 0);
}

void SDesktopX11::collectingChanges() {
  tx::ColourMapX11* colours = buffer_->colourMapX11();
  if (!colours || !colours->update()) return;
  server_->setColourMapEntries(0, 0);
  cursor_.send(true);
}

}  // namespace svr
