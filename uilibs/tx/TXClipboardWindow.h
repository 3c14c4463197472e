#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "plat/timer/Timer.h"
#include "tx/TXWindow.h"

namespace tx {

// The hidden window that fetches the text of PRIMARY, CLIPBOARD or cut buffer 0, and that owns the
// selections while they hold a viewer's text.
//
// A check asks for the selections' timestamps to find out which is new (or is told by an event),
// then for the targets of the newest and for its text. Nothing waits: answers are taken as they
// come, and a check that is not answered ends after 5 s.
class TXClipboardWindow : public TXWindow, private plat::Timer::Callback {
 public:
  class Callback {
   public:
    // Whether PRIMARY is preferred to CLIPBOARD.
    virtual bool sendPrimary() = 0;
    // New text of another client, UTF-8 as far as that client says so.
    virtual void clipboardChanged(size_t length, const char* text) = 0;
    // A check ended without new text; gotText when the text is known already.
    virtual void requestDone(bool /*gotText*/, bool /*timedOut*/) {}

   protected:
    ~Callback() = default;
  };

  // The callback is not owned. Until the first check has ended nothing is reported: what is there
  // at the start is only taken note of.
  explicit TXClipboardWindow(Callback* callback);

  // Looks for new text. None means the preferred selection; time is the X time at which the
  // selection is known to have changed, or 0. PRIMARY is ignored unless it is preferred. Throws
  // plat::Exception for any other selection but CLIPBOARD.
  void check(Atom selection = None, uint32_t time = CurrentTime);

  // Selections and cut buffers that are not newer than this X time are not new.
  void setLastTime(uint32_t time) { lastTime_ = time; }

  void setSelectionText(std::string_view text, uint32_t time) override;

 protected:
  void selectionNotify(const SelectionData& answer) override;

 private:
  void timerCallback(plat::Timer& timer) override;

  Atom preferredSelection() const;
  void askTimestamp(Atom selection, uint32_t time = CurrentTime);
  void askTargets(Atom selection);
  void gotTimestamp(const SelectionData& answer);
  void noteTimestamp(const SelectionData& answer);
  // Returns whether the check has ended with it.
  bool takeCutBuffer();
  void gotTargets(const SelectionData& answer);
  Atom textProperty();
  void gotText(const SelectionData& answer);
  void deliver(std::string text);
  void endCheck();
  void endCheck(bool gotText, bool timedOut);

  Callback* callback_;
  plat::Timer requestTimer_;
  uint32_t lastTime_ = 0;
  Atom chosenSelection_ = None;  // whose timestamp was new
  bool initialFetch_ = true;
  bool gotTimestamp_ = false;
  std::optional<std::string> lastText_;
  size_t nextTextProperty_ = 0;
};

}  // namespace tx
