#include "svr/SClipboardX11.h"

#include <climits>

#include "plat/config/BoolParameter.h"
#include "plat/config/IntParameter.h"

namespace svr {

namespace {

plat::IntParameter pollTime("poll", "How often to poll for clipboard changes in ms.", 0, 0,
                            INT_MAX);
plat::BoolParameter sendPrimarySelection(
    "SendPrimary",
    "Send the PRIMARY selection to Ruvo Viewer in preference to the CLIPBOARD selection", true);
plat::BoolParameter enableClipboard("EnableClipboard", "Enable clipboard monitoring in agent",
                                    false, true);

}  // namespace

SClipboardX11::SClipboardX11(Callback* callback)
    : callback_(callback), manager_(this, pollTime.value()) {}

void SClipboardX11::setMonitoring(bool on) {
  manager_.setEnabled(on && enableClipboard.value());
}

void SClipboardX11::setText(std::string_view text, uint32_t time) {
  tx::TXClipboardWindow& window = manager_.window();
  // The change of owner that follows is no new selection.
  window.setLastTime(time);
  window.setSelectionText(text, time);
}

bool SClipboardX11::sendPrimary() {
  return sendPrimarySelection.value();
}

bool SClipboardX11::clipboardChanged(size_t length, const char* text) {
  // An owner may answer after monitoring was switched off, or very late to the first check.
  if (manager_.isEnabled()) callback_->clipboardChanged(text, length);
  return manager_.isEnabled();
}

void SClipboardX11::requestDone(bool, bool) {}

}  // namespace svr
