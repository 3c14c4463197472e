#pragma once

#include <X11/Xlib.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "plat/timer/Timer.h"
#include "tx/PropertyBytes.h"
#include "tx/TXWindow.h"

namespace tx {

// Asks the owners of selections for them in the name of a window, and reads what they answer (ICCCM
// section 2.4). One request is under way at a time; one that is replaced is still owed an answer,
// which is taken for no other. What an owner sends in pieces (INCR) is thrown away.
class SelectionReader : private plat::Timer::Callback {
 public:
  struct Answer {
    Atom selection;
    Atom target;
    uint32_t time;   // as the owner gives it back
    bool isRefused;  // no property is named, or another one
    // Of type None when there is none. What would come in pieces is an empty UTF8_STRING; UTF-8 is
    // cut between characters.
    PropertyBytes property;
  };
  class Callback {
   public:
    // The answer to the request under way.
    virtual void selectionAnswered(const Answer& answer) = 0;

   protected:
    ~Callback() = default;
  };

  // Neither is owned. The window hands over its events.
  SelectionReader(TXWindow& window, Callback& callback);

  enum class Content { kControl, kData };
  // Has the owner of the selection convert it to the target and put it into that property of the
  // window, or into another one of a similar name while that one is in use; for data also when it
  // has just been answered through, since owners may answer twice. Replaces the request under way.
  void request(Atom selection, Atom target, const char* property, Content content, uint32_t time);
  // Whether any request like this is owed an answer, the one under way included.
  bool isOwed(Atom selection, Atom target) const;
  // No answer is waited for any more.
  void abandon() { isWaiting_ = false; }
  // Whether owners fill all properties of that name with pieces. Then only a new window helps.
  bool isClogged(const char* property) const;
  // Of the former window, which answers may still come for.
  void forget();

  // See TXWindow::wants().
  bool wants(const XEvent& event) const;
  void handleEvent(const XEvent& event);

 private:
  struct Request {
    Atom selection;
    Atom target;
    Atom property;
    Content content;
    uint32_t time;
  };
  struct Transfer {
    size_t bytes = 0;
  };

  void timerCallback(plat::Timer& timer) override;
  Atom freeProperty(const char* name);
  std::vector<Request>::const_iterator findOwed(const XSelectionEvent& event) const;
  void answered(const XSelectionEvent& event);
  PropertyBytes read(Atom property);
  void drain(Atom property);

  TXWindow& window_;
  Callback& callback_;
  std::vector<Request> owed_;  // the one under way is the last
  bool isWaiting_ = false;
  std::set<Atom> properties_;           // that answers were asked for in
  std::map<Atom, int64_t> answeredAt_;  // in ticks; by property
  std::map<Atom, Transfer> transfers_;  // by property
  plat::Timer pieceTimer_;
};

}  // namespace tx
