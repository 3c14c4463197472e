#pragma once

#include <X11/Xlib.h>
#include <X11/extensions/sync.h>

#include "tx/TXEventHandler.h"

namespace tx {

// Tells when the pointer is used after a rest: by a pointing device, by XTEST, or when another
// client warps it. An alarm on the time since the last use, which the SYNC extension counts.
class PointerAlarm : private TXEventHandler {
 public:
  class Callback {
   public:
    // Used after a rest; also when another client has destroyed the alarm.
    virtual void pointerUsed() = 0;

   protected:
    ~Callback() = default;
  };

  // The callback is not owned. The display must be open.
  explicit PointerAlarm(Callback& callback);
  ~PointerAlarm() override;
  PointerAlarm(const PointerAlarm&) = delete;
  PointerAlarm& operator=(const PointerAlarm&) = delete;

  // Tells of uses after a rest of more than restMs from now on. Does nothing where the X server
  // does not count the time.
  void start(int restMs);
  void stop();
  // Whether the pointer has rested so long by now that its next use will be told. One round trip.
  bool isSet();

 private:
  void handleEvent(const XEvent& event) override;
  void query();

  Callback& callback_;
  bool queried_ = false;
  int eventBase_ = 0;
  int restMs_ = 0;
  XSyncCounter counter_ = None;  // None where there is none
  XSyncAlarm alarm_ = None;
};

}  // namespace tx
