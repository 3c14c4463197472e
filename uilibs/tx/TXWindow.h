#pragma once

#include <X11/Xlib.h>

#include "rfb/Rect.h"

namespace tx {

// A window of this process, found by its id when events arrive.
class TXWindow {
 public:
  // An input-only window, not mapped, that gets PropertyNotify and the events of its structure. The
  // display must be open. rect is in root coordinates.
  explicit TXWindow(const rfb::Rect& rect = rfb::Rect(0, 0, 1, 1));
  virtual ~TXWindow();
  TXWindow(const TXWindow&) = delete;
  TXWindow& operator=(const TXWindow&) = delete;

  Window id() const { return id_; }
  // Null for a window that is not of this process.
  static TXWindow* find(Window id);

  // Events whose xany.window is this window. Does nothing by itself.
  virtual void handleEvent(const XEvent& event);

  // Whether an event of this window has a meaning now. Asked while Xlib reads: no request may be
  // made. What is unwanted is dropped unseen.
  virtual bool wants(const XEvent& event);

  // Puts a new window in place of this one, with another id and without properties. For windows
  // that other clients have destroyed, or whose properties they go on writing to.
  void remake();

 protected:
  // The window has another id since now.
  virtual void remade() {}

 private:
  void create();
  void destroy();

  Window id_;
  const rfb::Rect rect_;
};

}  // namespace tx
