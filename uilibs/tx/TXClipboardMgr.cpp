#include "tx/TXClipboardMgr.h"

#include "plat/Exception.h"
#include "plat/log/LogSrc.h"
#include "tx/Atoms.h"
#include "tx/FixesExtension.h"

namespace tx {

namespace {

plat::LogSrc vlog("TXClipboardMgr");

constexpr int kPollWithoutXFixesMs = 2000;

}  // namespace

TXClipboardMgr::TXClipboardMgr(TXClipboardWindow::Callback* callback, int pollTimeMs)
    : window_(callback), pollTimer_(this), pollTimeMs_(pollTimeMs) {
  window_.check();
  if (const FixesExtension* xfixes = FixesExtension::get()) {
    xfixesPresent_ = true;
    xfixesEventBase_ = xfixes->eventBase;
    vlog.info("XFixes extension present - version %d.%d", xfixes->majorVersion,
              xfixes->minorVersion);
  } else {
    vlog.info("XFixes extension not present");
    if (pollTimeMs_ == 0) pollTimeMs_ = kPollWithoutXFixesMs;
  }
}

TXClipboardMgr::~TXClipboardMgr() = default;

void TXClipboardMgr::setEnabled(bool enabled) {
  if (enabled == enabled_) return;
  enabled_ = enabled;
  window_.setWatching(enabled);
  pollTimer_.stop();
  if (!enabled || pollTimeMs_ < 1) return;
  vlog.info("Polling for clipboard updates every %dms", pollTimeMs_);
  pollTimer_.start(pollTimeMs_);
}

void TXClipboardMgr::timerCallback(plat::Timer&) {
  window_.check();
  pollTimer_.start(pollTimeMs_);
}

void TXClipboardMgr::handleEvent(const XEvent& event) {
  if (!xfixesPresent_ || event.type != xfixesEventBase_ + XFixesSelectionNotify) return;
  const auto& change = reinterpret_cast<const XFixesSelectionNotifyEvent&>(event);
  if (!enabled_ || change.window != window_.id()) return;
  const auto time = static_cast<uint32_t>(change.selection_timestamp);
  vlog.debug("selection change event, selection %s, timestamp %lu",
             atomName(change.selection).c_str(), static_cast<unsigned long>(time));
  try {
    window_.check(change.selection, time);
  } catch (const plat::Exception& e) {
    // Any client can send us an event like this.
    vlog.error("%s", e.text());
  }
}

}  // namespace tx
