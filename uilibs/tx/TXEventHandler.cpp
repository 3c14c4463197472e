#include "tx/TXEventHandler.h"

#include <algorithm>
#include <string>
#include <vector>

#include "plat/Exception.h"
#include "plat/config/BoolParameter.h"
#include "plat/log/LogSrc.h"
#include "tx/TXDisplay.h"
#include "tx/TXWindow.h"

namespace tx {

namespace {

plat::LogSrc vlog("TXWindow");
plat::BoolParameter debugEvents("_DebugEvents", "", false);

// Handlers that leave during dispatch are replaced by null until the outermost dispatch ends.
struct Handlers {
  std::vector<TXEventHandler*> list;
  int dispatching = 0;
};

Handlers& handlers() {
  return TXDisplay::part<Handlers>();
}

class DispatchScope {
 public:
  DispatchScope() { ++handlers().dispatching; }
  ~DispatchScope() {
    if (--handlers().dispatching == 0) std::erase(handlers().list, nullptr);
  }
};

std::string eventName(int type) {
  static const char* const names[] = {
      "KeyPress",         "KeyRelease",       "ButtonPress",    "ButtonRelease",
      "MotionNotify",     "EnterNotify",      "LeaveNotify",    "FocusIn",
      "FocusOut",         "KeymapNotify",     "Expose",         "GraphicsExpose",
      "NoExpose",         "VisibilityNotify", "CreateNotify",   "DestroyNotify",
      "UnmapNotify",      "MapNotify",        "MapRequest",     "ReparentNotify",
      "ConfigureNotify",  "ConfigureRequest", "GravityNotify",  "ResizeRequest",
      "CirculateNotify",  "CirculateRequest", "PropertyNotify", "SelectionClear",
      "SelectionRequest", "SelectionNotify",  "ColormapNotify", "ClientMessage",
      "MappingNotify",    "GenericEvent"};
  const size_t index = static_cast<size_t>(type) - KeyPress;
  if (index < std::size(names)) return names[index];
  return plat::format("Extension%d", type);
}

}  // namespace

TXEventHandler::TXEventHandler() {
  setHandlesEvents(true);
}
TXEventHandler::~TXEventHandler() {
  if (TXDisplay::current()) setHandlesEvents(false);
}

void TXEventHandler::setHandlesEvents(bool on) {
  std::vector<TXEventHandler*>& list = handlers().list;
  const auto it = std::find(list.begin(), list.end(), this);
  if (on == (it != list.end())) return;
  if (on) {
    list.push_back(this);
  } else if (handlers().dispatching > 0) {
    *it = nullptr;
  } else {
    list.erase(it);
  }
}

void TXEventHandler::dispatch(const XEvent& event) {
  if (debugEvents.value()) {
    vlog.debug("event %s%s window 0x%lx serial %lu", eventName(event.type).c_str(),
               event.xany.send_event ? " (sent)" : "",
               static_cast<unsigned long>(event.xany.window),
               static_cast<unsigned long>(event.xany.serial));
  }
  const DispatchScope scope;
  const size_t count = handlers().list.size();
  for (size_t i = 0; i < count; ++i) {
    if (TXEventHandler* handler = handlers().list[i]) handler->handleEvent(event);
  }
  if (TXWindow* window = TXWindow::find(event.xany.window)) window->handleEvent(event);
}

}  // namespace tx
