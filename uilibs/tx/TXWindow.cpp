#include "tx/TXWindow.h"

#include <map>

#include "tx/ErrorCatcher.h"
#include "tx/TXDisplay.h"

namespace tx {

namespace {

struct Windows {
  std::map<Window, TXWindow*> byId;
};

std::map<Window, TXWindow*>& windows() {
  return TXDisplay::part<Windows>().byId;
}

}  // namespace

TXWindow::TXWindow(const rfb::Rect& rect) : rect_(rect) {
  create();
}

TXWindow::~TXWindow() {
  if (TXDisplay::current()) destroy();
}

void TXWindow::create() {
  XSetWindowAttributes attributes{};
  attributes.override_redirect = True;
  attributes.event_mask = PropertyChangeMask | StructureNotifyMask;
  id_ = XCreateWindow(TXDisplay::display(), TXDisplay::root(), rect_.tl.x, rect_.tl.y,
                      static_cast<unsigned int>(rect_.width()),
                      static_cast<unsigned int>(rect_.height()), 0, 0, InputOnly, CopyFromParent,
                      CWOverrideRedirect | CWEventMask, &attributes);
  windows()[id_] = this;
}

void TXWindow::destroy() {
  const auto it = windows().find(id_);
  if (it == windows().end() || it->second != this) return;
  windows().erase(it);
  // Others can have destroyed it.
  const ErrorCatcher trap;
  TXDisplay::attempt([this] { XDestroyWindow(TXDisplay::display(), id_); });
}

void TXWindow::remake() {
  destroy();
  create();
  remade();
}

TXWindow* TXWindow::find(Window id) {
  const auto it = windows().find(id);
  return it == windows().end() ? nullptr : it->second;
}

void TXWindow::handleEvent(const XEvent&) {}

bool TXWindow::wants(const XEvent& event) {
  return event.type != PropertyNotify && event.type != SelectionNotify &&
         event.type != SelectionRequest && event.type != ConfigureNotify;
}

}  // namespace tx
