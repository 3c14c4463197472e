#pragma once

#include <X11/Xlib.h>
#include <sys/types.h>

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "plat/timer/Timer.h"

namespace tx {

// Finds out which user the desktop belongs to, from the processes that its windows say they belong
// to, and tells when another one is found. A window can say what it likes: it is believed when the
// X server knows the same of the client that made it. Without the X-Resource extension it is
// believed all the same. Meant for root, who alone may look at all processes. The display must be
// open.
class DesktopUidMonitor final : private plat::Timer::Callback {
 public:
  class Callback {
   public:
    // The owner's X authority file, empty when it is not known.
    virtual void desktopUidChanged(uid_t userId, const std::string& xauthority) = 0;
    virtual ~Callback() = default;
  };

  // Milliseconds between two walks.
  static constexpr int kIntervalMs = 5000;
  // A walk takes several turns of the loop when there are more windows than this.
  static constexpr int kWindowsPerTurn = 100;

  // The desktop's owner as far as its processes tell.
  struct Owner {
    uid_t userId;
    std::string xauthority;
  };
  // The user with most processes among these; the lowest id among several. Nothing when none of
  // them exists.
  static std::optional<Owner> ownerOf(const std::set<pid_t>& processes);

  // The callback is not owned, and called from the loop.
  explicit DesktopUidMonitor(Callback* callback);

 private:
  void timerCallback(plat::Timer& timer) override;
  void askForClients();
  void walkWindows();
  void look(Window window);

  Callback* callback_;
  plat::Timer timer_;
  // By the clients' resource bases; nothing when the X server does not tell.
  std::optional<std::map<XID, pid_t>> clients_;
  std::vector<Window> pending_;
  std::set<pid_t> processes_;
  std::optional<uid_t> owner_;
  bool isUncertain_ = false;  // told that windows are believed
};

}  // namespace tx
