#pragma once

#include <X11/Xlib.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "tx/DisplayLostException.h"

namespace tx {

// The process's connection to the X server and owner of all that is known of that server: its
// default screen, and parts such as atoms, extensions, windows and event handlers (see part()).
// One exists at a time (asserted). All functions belong to the main thread.
class TXDisplay {
 public:
  // Opens the display of that name (null: the one named by DISPLAY). Retries once with
  // XAUTHLOCALHOSTNAME set to "localhost". Installs the process-wide X error handlers. Throws
  // plat::Exception when the display cannot be opened.
  explicit TXDisplay(const char* name = nullptr);
  // Destroys the parts, latest first, and closes the connection.
  ~TXDisplay();
  TXDisplay(const TXDisplay&) = delete;
  TXDisplay& operator=(const TXDisplay&) = delete;

  // Null when there is none.
  static TXDisplay* current() { return current_; }
  // There is one, and its connection is not lost: requests may be made.
  static bool isOpen() { return current_ && !current_->lost_; }
  // The connection broke. The object stays, but no request may be made.
  static bool isLost() { return current_ && current_->lost_; }

  // While one lives, losing the display throws DisplayLostException out of the call into Xlib: for
  // XQueryExtension() and what is built on it, whose results mean nothing then. A display that is
  // lost already throws at once.
  class Throwing {
   public:
    Throwing() {
      if (isLost()) throw DisplayLostException();
      ++throwing_;
    }
    ~Throwing() { --throwing_; }
    Throwing(const Throwing&) = delete;
    Throwing& operator=(const Throwing&) = delete;
  };

  // Makes requests where no exception may leave, as in a destructor: does nothing unless the
  // display is open, and leaves it to isLost() to tell when it is lost meanwhile.
  template <typename Requests>
  static void attempt(Requests&& requests) {
    try {
      if (isOpen()) requests();
    } catch (const DisplayLostException&) {
      // Seen by isLost().
    }
  }

  // The rest needs a display (asserted), lost or not.
  static Display* display() { return get().display_; }
  static int screen();
  static Window root() { return get().root_; }
  static Visual* visual();
  static int depth();
  static Colormap colourMap() { return get().colourMap_; }

  // The X server's button for buttons 1..8 at indices 0..7. At most 8 are kept; the number that the
  // pointer has is returned.
  static constexpr int kMaxButtons = 8;
  static int pointerButtons(uint8_t map[kMaxButtons]);

  // The one object of this type that lives as long as the display; made when it is first asked for.
  template <typename Part>
  static Part& part() {
    static const size_t slot = nextSlot_++;
    void* const known = get().find(slot);
    return *static_cast<Part*>(known ? known : get().add(slot, std::shared_ptr<Part>(new Part)));
  }

 private:
  explicit TXDisplay(Display* display);
  static TXDisplay& get();
  static void onLost(Display* display, void*);
  static int onIOError(Display* display);
  void* find(size_t slot) const { return slot < slots_.size() ? slots_[slot] : nullptr; }
  void* add(size_t slot, std::shared_ptr<void> part);

  static inline TXDisplay* current_ = nullptr;
  static inline size_t nextSlot_ = 0;
  static inline int throwing_ = 0;

  Display* const display_;
  const Window root_;
  bool lost_ = false;
  bool hasExitHandler_ = false;
  Colormap colourMap_ = None;
  Font font_ = None;
  GC gc_ = nullptr;
  int buttons_ = 0;
  uint8_t buttonMap_[kMaxButtons] = {};
  struct Owned {
    size_t slot;
    std::shared_ptr<void> part;
  };
  std::vector<Owned> parts_;  // in the order of their making
  std::vector<void*> slots_;
};

}  // namespace tx
