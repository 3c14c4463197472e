#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>

#include "plat/WipingAllocator.h"
#include "plat/timer/Timer.h"
#include "rfb/Point.h"

namespace svr {

class SKeyboardX11;
class SPointerX11;

// Brings a viewer's keys and buttons to the X display in their order. Symbols that the keyboard
// carries are typed at once. One that needs a spare keycode waits, and everything behind it: for
// further events that have arrived, whose symbols are grafted together with it, then for other
// clients to take the new map. One that is spelled with a dead key waits for a moment after other
// keys. Motion waits only behind a button.
class InputQueue : private plat::Timer::Callback {
 public:
  // Beyond this many events nothing waits.
  static constexpr size_t kMaxWaiting = 65536;

  // Neither is owned.
  InputQueue(SKeyboardX11& keyboard, SPointerX11& pointer);
  InputQueue(const InputQueue&) = delete;
  InputQueue& operator=(const InputQueue&) = delete;

  // As those of svr::SDesktop.
  void keyEvent(uint32_t keysym, bool down);
  void pointerEvent(const rfb::Point& position, uint32_t buttonMask, bool relative);

  // Drops what waits and releases every key and button that is held.
  void releaseAll();

 private:
  struct Event {
    enum class Kind { kPress, kRelease, kPosition, kOffset };

    Kind kind = Kind::kRelease;
    uint32_t value = 0;  // keysym or button mask
    rfb::Point point;
  };

  // plat::Timer::Callback
  void timerCallback(plat::Timer& timer) override;

  void push(const Event& event);
  void run();
  // False if the event must wait.
  bool inject(const Event& event);
  // How long the first event, which must wait, waits in ms, 0 for not at all. If its symbol needs a
  // keycode it is given one, and those of the events behind it.
  int prepare();

  SKeyboardX11& keyboard_;
  SPointerX11& pointer_;
  // What is typed may be secret.
  std::deque<Event, plat::WipingAllocator<Event>> events_;
  plat::Timer timer_;
  // More may have arrived: until nothing comes in a turn of the loop, or until that time.
  bool gathering_ = false;
  bool arrived_ = false;
  int64_t gatherUntil_ = 0;
  // The first event must not wait any more.
  bool firstPrepared_ = false;
  // As the viewer told last.
  uint32_t buttonMask_ = 0;
  size_t pointerEventsWaiting_ = 0;
};

}  // namespace svr
