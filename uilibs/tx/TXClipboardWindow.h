#pragma once

#include <X11/Xlib.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "plat/timer/Timer.h"
#include "tx/SelectionOwner.h"
#include "tx/SelectionReader.h"
#include "tx/TXWindow.h"

namespace tx {

// A hidden window that fetches what other clients copy, and offers text in PRIMARY, CLIPBOARD and
// cut buffer 0. Nothing waits: answers are taken as they come, and a check that is not answered
// ends after 5 s.
class TXClipboardWindow : public TXWindow,
                          private SelectionReader::Callback,
                          private plat::Timer::Callback {
 public:
  class Callback {
   public:
    // Whether PRIMARY is preferred to CLIPBOARD.
    virtual bool sendPrimary() = 0;
    // New text of another client, UTF-8 as far as that client says so. Returns whether it was of
    // use: if not, the same text is new the next time.
    virtual bool clipboardChanged(size_t length, const char* text) = 0;
    // A check ended without new text; gotText when the text is known already.
    virtual void requestDone(bool gotText, bool timedOut) = 0;

   protected:
    ~Callback() = default;
  };

  // Milliseconds that a later change waits for the answers to an earlier one.
  static constexpr int kPatienceMs = 250;

  // The callback is not owned. Until the first check has ended nothing is reported: what is there
  // at the start is only taken note of.
  explicit TXClipboardWindow(Callback* callback);

  // Looks for new text. None means the preferred selection; time is the X time at which the
  // selection is known to have changed, or 0. While another check runs this one waits for its end,
  // or ends it when it takes long; of several that wait for the same selection the last one counts.
  // PRIMARY is ignored unless it is preferred. Throws plat::Exception for any other selection but
  // CLIPBOARD.
  void check(Atom selection = None, uint32_t time = CurrentTime);

  // Whether XFIXES tells this window of changes of PRIMARY and CLIPBOARD.
  void setWatching(bool on);

  // Selections and cut buffers that are not newer than this X time are not new.
  void setLastTime(uint32_t time) { lastTime_ = time; }

  // Makes the text (UTF-8, any bytes) the window's current text, stores it as Latin-1 in cut buffer
  // 0 and takes PRIMARY and CLIPBOARD with the X time.
  void setSelectionText(std::string_view text, uint32_t time);

  void handleEvent(const XEvent& event) override;
  bool wants(const XEvent& event) override;

 private:
  struct Change {
    Atom selection;
    uint32_t time;
  };

  void selectionAnswered(const SelectionReader::Answer& answer) override;
  void timerCallback(plat::Timer& timer) override;
  void remade() override;

  void selectChanges();
  Atom preferredSelection() const;
  void begin(const Change& change);
  void beginNext();
  void startPatience();
  void ask(Atom selection, Atom target, uint32_t time);
  void askTimestamp(Atom selection, uint32_t time = CurrentTime);
  void askTargets(Atom selection);
  void gotTimestamp(const SelectionReader::Answer& answer);
  void noteTimestamp(const SelectionReader::Answer& answer);
  // Returns whether the check has ended with it.
  bool takeCutBuffer();
  void gotTargets(const SelectionReader::Answer& answer);
  bool endedByOwning(Atom selection);
  void gotText(const SelectionReader::Answer& answer);
  void deliver(std::string text);
  void endCheck();
  void endCheck(bool gotText, bool timedOut);

  Callback* callback_;
  SelectionOwner owner_;
  SelectionReader reader_;
  bool isWatching_ = false;
  plat::Timer requestTimer_;   // of the check under way
  plat::Timer patienceTimer_;  // of those that wait
  plat::Timer remakeTimer_;    // after the window was destroyed
  std::optional<Change> current_;
  std::vector<Change> waiting_;
  uint32_t lastTime_ = 0;
  Atom chosenSelection_ = None;  // whose timestamp was new
  bool initialFetch_ = true;
  bool gotTimestamp_ = false;
  bool isAskedTwice_ = false;            // the request under way
  std::optional<std::string> lastText_;  // the last one delivered or offered
};

}  // namespace tx
