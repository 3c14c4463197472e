#include "svr/SDesktopX11.h"

#include <X11/XKBlib.h>

#include <climits>
#include <cstring>

#include "plat/Exception.h"
#include "plat/config/BoolParameter.h"
#include "plat/config/IntParameter.h"
#include "plat/config/StringParameter.h"
#include "plat/log/LogSrc.h"
#include "svr/SServer.h"
#include "tx/DamageExtension.h"
#include "tx/FixesExtension.h"
#include "tx/RandrExtension.h"
#include "tx/TXDisplay.h"
#include "tx/TXWindow.h"
#include "tx/XTestExtension.h"

namespace svr {

namespace {

plat::LogSrc vlog("SDesktopX11");

enum CaptureMethod { kOptimal = 0, kPoll = 1, kForceDamage = 2 };
enum UseFixes { kFixesOff = 0, kFixesAuto = 1 };

plat::IntParameter captureMethod("CaptureMethod",
                                 plat::MessageId{"svr_param_sdesktopx11_capturemethod"}, kOptimal,
                                 kOptimal, kForceDamage);
plat::IntParameter pollInterval("PollInterval", plat::MessageId{"svr_param_pollinterval"}, 50, 1,
                                INT_MAX);
plat::IntParameter useXFixes(
    "UseXFixes",
    "Whether to use the XFixes extension to track cursor changes: 0 = Don't use; 1 = Auto (for "
    "XOrg 1.5.0 to 1.8.2, delay using XFixes in service-mode until login to avoid a bug in some "
    "packages of those releases); 2 = Use if available.",
    kFixesAuto, 0, 2, true);
plat::StringParameter monitor("Monitor", plat::MessageId{"svr_param_sdisplay_displaydevice"}, "");
plat::BoolParameter clipToMonitors("_ClipToMonitors", "", true);

void probeXTest() {
  const tx::XTestExtension& xtest = tx::XTestExtension::get();
  if (xtest.isPresent) {
    vlog.info("XTest extension present - version %d.%d", xtest.majorVersion, xtest.minorVersion);
  } else {
    vlog.info(
        "XTest extension not present - unable to inject events or display while server is grabbed");
  }
}

bool probeDamage(bool hasFixes) {
  const tx::DamageExtension* damage = hasFixes ? tx::DamageExtension::get() : nullptr;
  if (damage) {
    vlog.info("XDamage extension present - version %d.%d", damage->majorVersion,
              damage->minorVersion);
  } else {
    vlog.info("XDamage disabled / not present - unable to optimize capture");
  }
  return damage != nullptr;
}

}  // namespace

bool SDesktopX11::probeFixes() {
  probeXTest();
  const tx::FixesExtension* fixes =
      useXFixes.value() == kFixesOff ? nullptr : tx::FixesExtension::get();
  if (fixes) {
    vlog.info("XFixes extension present - version %d.%d", fixes->majorVersion, fixes->minorVersion);
  } else {
    vlog.info("XFixes disabled / not present - unable to track cursor changes");
  }
  return fixes != nullptr;
}

bool SDesktopX11::delayFixesCursors(bool serviceMode) {
  if (!serviceMode || useXFixes.value() != kFixesAuto) return false;
  Display* display = tx::TXDisplay::display();
  const int release = VendorRelease(display);
  if (!strstr(ServerVendor(display), "X.Org") || release < 10499000 || release >= 10900000) {
    return false;
  }
  vlog.info("Temporarily disabling XFixes cursors: X.Org %d too old", release);
  return true;
}

SDesktopX11::SDesktopX11(Callback* callback, bool serviceMode)
    : callback_(callback),
      hasFixes_(probeFixes()),
      cursor_(hasFixes_, hasFixes_ && delayFixesCursors(serviceMode)),
      hasDamage_(probeDamage(hasFixes_)),
      hasRandr_(tx::RandrExtension::get() != nullptr),
      scheduler_(this, this),
      pollTimer_(this),
      rebuildTimer_(this),
      pointer_(this) {
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
  keyboard_.keyEvent(keysym, down);
}

void SDesktopX11::pointerEvent(const rfb::Point& position, uint32_t buttonMask, bool relative) {
  pointer_.pointerEvent(position, buttonMask, relative);
}

void SDesktopX11::pointerPosition(int x, int y) {
  if (server_) server_->setCursorPos({x, y});
}

void SDesktopX11::pointerMoved() {
  if (server_) server_->localInput();
}

void SDesktopX11::clientCutText(const char* text, size_t length) {
  callback_->clientCutText(text, length);
}

void SDesktopX11::start(SServer& server) {
  stop();
  server_ = &server;
  selection_ = plat::String();
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
  tx::TXWindow::setPosTracker(this);
  selectBell(true);
  cursor_.start(*server_);
  if (!tryDamage()) startPolling();
}

void SDesktopX11::stop() {
  if (!server_) return;
  if (buffer_) buffer_->clear();
  stopDamage();
  if (captureMethod.value() != kOptimal) callback_->captureBroken(false);
  teardown();
}

void SDesktopX11::stopDamage() {
  damageTest_.reset();
  damage_.reset();
}

void SDesktopX11::teardown() {
  cursor_.stop();
  stopDamage();
  pollTimer_.stop();
  rebuildTimer_.stop();
  scheduler_.reset();
  pendingRegion_.clear();
  rootEvents_.set(0);
  selectBell(false);
  tx::TXWindow::setPosTracker(nullptr);
  // A viewer that goes must not leave a key or button down.
  pointer_.setPolling(false);
  pointer_.releaseButtons();
  keyboard_.releaseKeys();
  server_->setPixelBuffer(nullptr);
  server_ = nullptr;
  buffer_.reset();
}

void SDesktopX11::selectBell(bool on) {
  if (xkbEventBase_ < 0 || !tx::TXDisplay::isOpen()) return;
  XkbSelectEvents(tx::TXDisplay::display(), XkbUseCoreKbd, XkbBellNotifyMask,
                  on ? XkbBellNotifyMask : 0);
}

void SDesktopX11::framebufferUpdateRequest() {
  if (server_) scheduler_.tryUpdate();
}

rfb::Rect SDesktopX11::getRect() {
  return buffer_ ? buffer_->getRect() : MonitorList::screenRect();
}

void SDesktopX11::getPixelFormat(rfb::PixelFormat& format) {
  format = tx::PixelBufferX11::pixelFormat(tx::TXDisplay::display(), tx::TXDisplay::visual(),
                                           tx::TXDisplay::depth());
}

// Building the capture buffer

rfb::Rect SDesktopX11::selectedRect(const MonitorList& monitors,
                                    const plat::String& selection) const {
  try {
    return monitors.select(selection);
  } catch (const plat::Exception& e) {
    vlog.error("Bad Monitor param: %s", e.text());
    return rfb::Rect();
  }
}

rfb::Rect SDesktopX11::captureRect(const MonitorList& monitors, plat::String* inForce) const {
  for (const plat::String& selection : {monitor.value(), selection_}) {
    const rfb::Rect rect = selectedRect(monitors, selection);
    if (rect.isEmpty()) continue;
    vlog.info(
        "Monitor %s rect %s", selection.c_str(),
        plat::format("%dx%d at %d,%d", rect.width(), rect.height(), rect.tl.x, rect.tl.y).c_str());
    *inForce = selection;
    return rect;
  }
  return rfb::Rect();
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
  plat::String inForce;
  const rfb::Rect rect = captureRect(monitors, &inForce);

  server_->setPixelBuffer(nullptr);
  std::unique_ptr<tx::PixelBufferX11> built;
  try {
    built = std::make_unique<tx::PixelBufferX11>(tx::TXDisplay::root(),
                                                 callback_->sharedMemPermissions(), rect);
  } catch (...) {
    if (buffer_) server_->setPixelBuffer(buffer_.get());
    throw;
  }
  if (clip) built->setClip(monitors.region());
  // What had changed before is part of the new buffer's first contents.
  scheduler_.tracker().clear();
  pendingRegion_.clear();
  // The test looks at the buffer that goes.
  const bool testing = damageTest_ != nullptr;
  damageTest_.reset();
  buffer_.swap(built);
  server_->setPixelBuffer(buffer_.get());
  callback_->monitorsUpdated(monitors.displayInfo(), monitor.value(), inForce);
  if (testing) {
    vlog.info("Restarting damage test due to resolution change");
    startDamageTest();
  }
}

void SDesktopX11::rebuild() {
  try {
    buildBuffer();
  } catch (const plat::Exception& e) {
    server_->desktopFailure(e);
  }
}

bool SDesktopX11::setMonitorSelection(const plat::String& selection) {
  if (selection.view() == selection_.view()) return false;
  if (!selection.empty()) {
    if (!hasRandr_) return false;
    try {
      MonitorList::query().select(selection);
    } catch (const plat::Exception& e) {
      vlog.error("Invalid monitor selection: %s", e.text());
      return false;
    }
  }
  selection_ = selection;
  if (server_) rebuild();
  return true;
}

// Finding changes

bool SDesktopX11::tryDamage() {
  if (captureMethod.value() == kPoll || !hasDamage_) return false;
  if (!damage_) {
    vlog.info("Using damage extension");
    damage_.emplace();
  }
  if (captureMethod.value() == kOptimal) {
    startDamageTest();
  } else {
    // Changes between the buffer's first contents and the start of damage are lost otherwise.
    buffer_->grabRegion(buffer_->getRect());
  }
  return true;
}

void SDesktopX11::startDamageTest() {
  damageTest_.reset();
  DamageTestCallback* const callback = this;
  damageTest_ = std::make_unique<DamageTest>(callback, buffer_.get());
}

void SDesktopX11::startPolling() {
  vlog.info("Using polling");
  pollTimer_.start(pollInterval.value());
}

void SDesktopX11::timerCallback(plat::Timer& timer) {
  if (&timer == &rebuildTimer_) {
    rebuild();
    return;
  }
  pollTimer_.start(pollInterval.value());
  scheduler_.tracker().addChanged(buffer_->getRect());
  scheduler_.changed();
}

void SDesktopX11::handleEvent(const XEvent& event) {
  if (!server_) return;
  if (event.type == ConfigureNotify) {
    // X servers send one also when only monitors come, go or move. Several at once make one
    // rebuild.
    if (event.xconfigure.window == tx::TXDisplay::root()) rebuildTimer_.start(0);
    return;
  }
  if (xkbEventBase_ >= 0 && event.type == xkbEventBase_) {
    const auto& xkbEvent = reinterpret_cast<const XkbAnyEvent&>(event);
    if (xkbEvent.xkb_type == XkbBellNotify) server_->bell();
    return;
  }
  if (damage_ && damage_->isNewDamage(event)) {
    scheduler_.changed();
    return;
  }
  cursor_.handleEvent(event);
}

bool SDesktopX11::isUpdateWanted() {
  return server_ && server_->isUpdateRequested();
}

void SDesktopX11::performUpdate(const rfb::UpdateInfo& update) {
  server_->writeUpdate(update);
}

void SDesktopX11::preUpdate() {
  tx::ColourMapX11* colours = buffer_->colourMapX11();
  if (colours && colours->update()) {
    server_->setColourMapEntries(0, 0);
    cursor_.send(true);
  }
  if (!damage_) return;
  rfb::Region damaged = damage_->fetch();
  if (damaged.isEmpty()) return;
  damaged |= pendingRegion_;
  pendingRegion_.clear();
  damaged &= buffer_->getRect();
  scheduler_.tracker().addChanged(damaged);
  if (damageTest_) damageTest_->damageReported(damaged);
}

void SDesktopX11::windowMoved(const rfb::Rect& from, const rfb::Rect& to) {
  pendingRegion_.addRects({from, to});
}

void SDesktopX11::collectDamageNow() {
  preUpdate();
  if (!scheduler_.tracker().isEmpty()) scheduler_.changed();
}

void SDesktopX11::damageTestResult(DamageTest&, bool any, bool all, bool nonFull) {
  vlog.info("Damage test: any %d all %d non full %d", any, all, nonFull);
  callback_->captureBroken(!all);
  damageTest_.reset();
  if (all) return;
  stopDamage();
  startPolling();
}

}  // namespace svr
