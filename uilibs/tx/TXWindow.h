#pragma once

#include <X11/Xlib.h>

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "rfb/Rect.h"
#include "tx/WindowPosTracker.h"

namespace tx {

// A window of this process, found by its id when events arrive. It can own X selections and ask for
// them (ICCCM section 2).
class TXWindow {
 public:
  // An input-only window, not mapped, that gets PropertyNotify and ConfigureNotify. The display
  // must be open. rect is in root coordinates.
  explicit TXWindow(const rfb::Rect& rect = rfb::Rect(0, 0, 1, 1));
  virtual ~TXWindow();
  TXWindow(const TXWindow&) = delete;
  TXWindow& operator=(const TXWindow&) = delete;

  Window id() const { return id_; }
  // Null for a window that is not of this process.
  static TXWindow* find(Window id);

  // Events whose xany.window is this window. Overriders call the base.
  virtual void handleEvent(const XEvent& event);

  // Told of every window's moves; null for none. Not owned.
  static void setPosTracker(WindowPosTracker* tracker);

  // Makes the text (UTF-8, any bytes) this window's current text, stores it as Latin-1 in cut
  // buffer 0 and takes PRIMARY and CLIPBOARD with the X time.
  virtual void setSelectionText(std::string_view text, uint32_t time);
  // The window of this process that owns the selection, or null.
  static TXWindow* selectionOwner(Atom selection);

 protected:
  // The text of setSelectionText(); no value before.
  const std::optional<std::string>& text() const { return text_; }

  // Has the owner of the selection convert it to the target and put it into that property of this
  // window. The answer arrives in selectionNotify(). What an earlier owner still sends through the
  // property is not taken any more, so that it can no more be told from the answer.
  void requestSelection(Atom selection, Atom target, Atom property, uint32_t time);

  // Whether an owner sends pieces (INCR) through the property, which are thrown away.
  bool isDraining(Atom property) const { return draining_.count(property) != 0; }

  struct SelectionData {
    Atom selection;
    Atom target;
    Atom property;  // None when the owner refused
    uint32_t time;
    Atom type;  // None when the property does not exist
    int format;
    // Items of format 16 and 32 as uint16_t and uint32_t. At most 256 KB; UTF-8 is cut between
    // characters. What the owner would send in pieces (INCR) arrives as an empty UTF8_STRING.
    std::string data;
  };
  // The answer to requestSelection(). The property has been deleted.
  virtual void selectionNotify(const SelectionData& data);

 private:
  void takeSelection(Atom selection, uint32_t time);
  void selectionClear(const XSelectionClearEvent& event);
  void serveRequest(const XSelectionRequestEvent& request);
  bool writeAnswer(const XSelectionRequestEvent& request, Atom property);
  void receiveAnswer(const XSelectionEvent& event);
  void readAnswer(SelectionData* answer);
  void drain(Atom property);

  Window id_;
  rfb::Rect rect_;
  std::optional<std::string> text_;
  std::map<Atom, uint32_t> owned_;  // by selection: the time it was taken with
  std::set<Atom> draining_;
};

}  // namespace tx
