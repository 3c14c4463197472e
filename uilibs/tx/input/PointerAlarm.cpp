#include "tx/input/PointerAlarm.h"

#include <string_view>
#include <utility>

#include "tx/ErrorCatcher.h"
#include "tx/TXDisplay.h"

namespace tx {

namespace {

// The master pointer is device 2 of every server that has devices; others count all input together.
constexpr std::string_view kNames[] = {"DEVICEIDLETIME 2", "IDLETIME"};

XSyncCounter findCounter(Display* display) {
  int count = 0;
  XSyncSystemCounter* const counters = XSyncListSystemCounters(display, &count);
  if (!counters) return None;
  XSyncCounter found = None;
  for (const std::string_view name : kNames) {
    for (int i = 0; i < count && found == None; ++i) {
      if (counters[i].name == name) found = counters[i].counter;
    }
  }
  XSyncFreeSystemCounterList(counters);
  return found;
}

}  // namespace

PointerAlarm::PointerAlarm(Callback& callback) : callback_(callback) {}

PointerAlarm::~PointerAlarm() {
  stop();
}

void PointerAlarm::start(int restMs) {
  stop();
  if (!TXDisplay::isOpen()) return;
  if (!std::exchange(queried_, true)) query();
  if (counter_ == None) return;
  XSyncAlarmAttributes wanted{};
  wanted.trigger.counter = counter_;
  wanted.trigger.value_type = XSyncAbsolute;
  XSyncIntToValue(&wanted.trigger.wait_value, restMs);
  // Whenever the time falls from above this to below.
  wanted.trigger.test_type = XSyncNegativeTransition;
  XSyncIntToValue(&wanted.delta, 0);
  wanted.events = True;
  alarm_ = XSyncCreateAlarm(TXDisplay::display(),
                            XSyncCACounter | XSyncCAValueType | XSyncCAValue | XSyncCATestType |
                                XSyncCADelta | XSyncCAEvents,
                            &wanted);
  restMs_ = restMs;
}

void PointerAlarm::query() {
  Display* const display = TXDisplay::display();
  int errorBase;
  const TXDisplay::Throwing throwing;
  const ErrorCatcher trap;
  // This asks for the version, too. XSyncInitialize() would tell it, but reads through a null
  // pointer when the X server has refused to; nothing here depends on it.
  if (XSyncQueryExtension(display, &eventBase_, &errorBase)) counter_ = findCounter(display);
}

void PointerAlarm::stop() {
  const XSyncAlarm old = std::exchange(alarm_, XSyncAlarm{None});
  if (old == None) return;
  TXDisplay::attempt([old] {
    // Another client may have destroyed it.
    const ErrorCatcher trap;
    XSyncDestroyAlarm(TXDisplay::display(), old);
  });
}

bool PointerAlarm::isSet() {
  if (alarm_ == None || !TXDisplay::isOpen()) return false;
  const ErrorCatcher trap;
  XSyncValue idle, least;
  XSyncIntToValue(&least, restMs_);
  return XSyncQueryCounter(TXDisplay::display(), counter_, &idle) &&
         XSyncValueGreaterThan(idle, least);
}

void PointerAlarm::handleEvent(const XEvent& event) {
  if (alarm_ == None || event.type != eventBase_ + XSyncAlarmNotify) return;
  const auto& notify = reinterpret_cast<const XSyncAlarmNotifyEvent&>(event);
  if (notify.alarm != alarm_) return;
  if (notify.state == XSyncAlarmDestroyed) alarm_ = None;
  callback_.pointerUsed();
}

}  // namespace tx
