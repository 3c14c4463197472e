#pragma once

#include "plat/timer/Timer.h"
#include "tx/CutBufferEventHandler.h"
#include "tx/TXClipboardWindow.h"
#include "tx/TXEventHandler.h"

namespace tx {

// Notices when another client changes PRIMARY, CLIPBOARD or cut buffer 0, by XFIXES events and by
// polling, and has its window fetch the text.
class TXClipboardMgr : private plat::Timer::Callback, private TXEventHandler {
 public:
  // The display must be open. The callback is not owned. pollTimeMs is the interval of polling
  // while enabled; 0 means none, or every 2000 ms when the server has no XFIXES. Starts the first
  // check, which reports nothing.
  TXClipboardMgr(TXClipboardWindow::Callback* callback, int pollTimeMs);
  ~TXClipboardMgr() override;

  // Initially disabled.
  void setEnabled(bool enabled);
  bool isEnabled() const { return enabled_; }

  TXClipboardWindow& window() { return window_; }

 private:
  void timerCallback(plat::Timer& timer) override;
  void handleEvent(const XEvent& event) override;

  const CutBufferEventHandler cutBuffer_;
  TXClipboardWindow window_;
  bool xfixesPresent_ = false;
  int xfixesEventBase_ = -1;
  bool enabled_ = false;
  plat::Timer pollTimer_;
  int pollTimeMs_;
};

}  // namespace tx
