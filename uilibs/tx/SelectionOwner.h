#pragma once

#include <X11/Xlib.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "plat/timer/Timer.h"
#include "tx/TXWindow.h"

namespace tx {

// Owns X selections in the name of a window and serves their text to other clients (ICCCM section
// 2.2). Serving takes half of the loop's time at most: what is asked for faster waits.
class SelectionOwner : private plat::Timer::Callback {
 public:
  // The window is not owned. It hands over its events.
  explicit SelectionOwner(TXWindow& window);
  ~SelectionOwner();
  SelectionOwner(const SelectionOwner&) = delete;
  SelectionOwner& operator=(const SelectionOwner&) = delete;

  // Who in this process owns the selection, or null.
  static const SelectionOwner* find(Atom selection);

  // The text to serve (UTF-8, any bytes); no value before the first.
  void setText(std::string_view text);
  const std::optional<std::string>& text() const { return text_; }
  // The same in Latin-1.
  const std::string& latin1() const { return latin1_; }

  // Takes the selection as of that X time. Returns whether it is ours then.
  bool take(Atom selection, uint32_t time);
  // Takes the selections that were owned by the former window of this object's window, each as of
  // the time it was taken, so that who has taken one since keeps it.
  void takeBack();

  // See TXWindow::wants(). Counts the requests of each client.
  bool wants(const XEvent& event);
  void handleEvent(const XEvent& event);

 private:
  using Clock = std::chrono::steady_clock;

  struct Taken {
    uint32_t time;
    unsigned long request;  // the number of the request that took it
  };

  void timerCallback(plat::Timer& timer) override;
  void lost(const XSelectionClearEvent& event);
  void forget(Atom selection);
  void asked(const XSelectionRequestEvent& request);
  bool mayServe() const;
  void serve(const XSelectionRequestEvent& request);
  bool writeAnswer(const XSelectionRequestEvent& request, Atom property);

  TXWindow& window_;
  std::optional<std::string> text_;
  std::string latin1_;
  std::map<Atom, Taken> owned_;
  std::deque<XSelectionRequestEvent> waiting_;
  std::map<XID, int> unserved_;  // requests by client
  plat::Timer timer_;
  // As much time as has been served has passed again then.
  Clock::time_point rested_;
};

}  // namespace tx
