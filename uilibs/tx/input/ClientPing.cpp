#include "tx/input/ClientPing.h"

#include <X11/Xatom.h>

#include <cstring>

#include "plat/Time.h"
#include "tx/Atoms.h"
#include "tx/ErrorCatcher.h"
#include "tx/PropertyBytes.h"
#include "tx/TXDisplay.h"
#include "tx/XResources.h"

namespace tx {

namespace {

constexpr const char* kProtocols = "WM_PROTOCOLS";
constexpr const char* kPing = "_NET_WM_PING";
// How long an answer is awaited.
constexpr int64_t kPatience = 3000 * plat::kTicksPerMs;
// A client's window, and a window manager's around it.
constexpr int kMaxDepth = 8;

bool takesPing(Window window) {
  const PropertyBytes protocols = readProperty(window, internAtom(kProtocols), false);
  if (protocols.type != XA_ATOM || protocols.format != 32) return false;
  for (size_t at = 0; at + sizeof(uint32_t) <= protocols.data.size(); at += sizeof(uint32_t)) {
    uint32_t atom;
    memcpy(&atom, protocols.data.data() + at, sizeof atom);
    if (atom == internAtom(kPing)) return true;
  }
  return false;
}

// The window with the focus, or the one around it that takes pings; None if there is none.
Window pingWindow() {
  Display* const display = TXDisplay::display();
  const ErrorCatcher trap;
  Window window = None;
  int revertTo;
  XGetInputFocus(display, &window, &revertTo);
  if (window == PointerRoot) return None;
  for (int depth = 0; depth < kMaxDepth && window != None && window != TXDisplay::root(); ++depth) {
    if (takesPing(window)) return window;
    Window root, parent = None, *children = nullptr;
    unsigned count;
    if (!XQueryTree(display, window, &root, &parent, &children, &count)) return None;
    const XMemory<Window> memory(children);
    window = parent;
  }
  return None;
}

}  // namespace

ClientPing::ClientPing() : timer_(this) {}

void ClientPing::send() {
  if (awaited_) return;
  const Window window = pingWindow();
  if (window != window_) heard_ = true;
  window_ = window;
  if (window == None) {
    heard_ = false;
    return;
  }
  mask_.set(SubstructureNotifyMask);
  sentAt_ = plat::monotonicTime();
  number_ = number_ % 0x7fffffff + 1;
  XEvent event{};
  event.xclient.type = ClientMessage;
  event.xclient.window = window;
  event.xclient.message_type = internAtom(kProtocols);
  event.xclient.format = 32;
  event.xclient.data.l[0] = static_cast<long>(internAtom(kPing));
  event.xclient.data.l[1] = number_;
  event.xclient.data.l[2] = static_cast<long>(window);
  const ErrorCatcher trap;
  XSendEvent(TXDisplay::display(), window, False, NoEventMask, &event);
  awaited_ = true;
  timer_.start(kLookMs);
}

void ClientPing::see(const XClientMessageEvent& message) {
  if (!awaited_ || message.window != TXDisplay::root() || message.format != 32 ||
      message.message_type != internAtom(kProtocols) ||
      message.data.l[0] != static_cast<long>(internAtom(kPing)) || message.data.l[1] != number_) {
    return;
  }
  awaited_ = false;
  heard_ = true;
  handledUntil_ = sentAt_;
}

void ClientPing::timerCallback(plat::Timer&) {
  if (awaited_ && plat::monotonicTime() - sentAt_ < kPatience) {
    timer_.start(kLookMs);
    return;
  }
  heard_ = heard_ && !awaited_;
  awaited_ = false;
  mask_.set(0);
}

}  // namespace tx
