#include "tx/XClients.h"

#include <cstdint>
#include <limits>
#include <vector>

#include "tx/TXDisplay.h"

// After all others: they define macros that the standard library does not stand.
#include <X11/Xlibint.h>
#include <X11/extensions/XResproto.h>
#undef min
#undef max

// There is a client library for the extension, but its two requests are not worth a dependency.
// Xlib's macros convert as they like.
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wold-style-cast"

namespace tx {

namespace {

// The major opcode of X-Resource; 0 when the server does not have what is needed.
class ResourceExtension {
 public:
  ResourceExtension() {
    const TXDisplay::Throwing throwing;
    Display* const display = TXDisplay::display();
    int event = 0;
    int error = 0;
    if (!XQueryExtension(display, XRES_NAME, &opcode_, &event, &error) ||
        !knowsProcesses(display)) {
      opcode_ = 0;
    }
  }
  int opcode() const { return opcode_; }

 private:
  bool knowsProcesses(Display* dpy) const {
    LockDisplay(dpy);
    auto* const req = static_cast<xXResQueryVersionReq*>(
        _XGetRequest(dpy, static_cast<CARD8>(opcode_), sz_xXResQueryVersionReq));
    req->XResReqType = X_XResQueryVersion;
    req->client_major = XRES_MAJOR_VERSION;
    req->client_minor = XRES_MINOR_VERSION;
    xXResQueryVersionReply reply;
    const bool answered = _XReply(dpy, reinterpret_cast<xReply*>(&reply), 0, xTrue);
    UnlockDisplay(dpy);
    SyncHandle();
    return answered && (reply.server_major > 1 ||
                        (reply.server_major == 1 && reply.server_minor >= XRES_MINOR_VERSION));
  }

  int opcode_ = 0;
};

// The answer's items after its header; nothing when there is no answer.
std::vector<uint32_t> queryClientIds(Display* dpy, int opcode, uint32_t mask) {
  std::vector<uint32_t> items;
  LockDisplay(dpy);
  auto* const req = static_cast<xXResQueryClientIdsReq*>(_XGetRequest(
      dpy, static_cast<CARD8>(opcode), sz_xXResQueryClientIdsReq + sz_xXResClientIdSpec));
  req->XResReqType = X_XResQueryClientIds;
  req->numSpecs = 1;
  auto* const spec = reinterpret_cast<xXResClientIdSpec*>(req + 1);
  spec->client = None;  // all of them
  spec->mask = mask;
  xXResQueryClientIdsReply reply;
  if (_XReply(dpy, reinterpret_cast<xReply*>(&reply), 0, xFalse)) {
    constexpr uint32_t kMaxItems = 1 << 20;
    if (reply.length <= kMaxItems) {
      items.resize(reply.length);
      _XReadPad(dpy, reinterpret_cast<char*>(items.data()), static_cast<long>(reply.length) * 4);
    } else {
      _XEatDataWords(dpy, reply.length);
    }
  }
  UnlockDisplay(dpy);
  SyncHandle();
  return items;
}

}  // namespace

XID clientOf(XID resource) {
  return resource & ~TXDisplay::display()->resource_mask;
}

std::optional<std::map<XID, pid_t>> localClientProcesses() {
  const int opcode = TXDisplay::part<ResourceExtension>().opcode();
  if (opcode == 0) return std::nullopt;
  const std::vector<uint32_t> items =
      queryClientIds(TXDisplay::display(), opcode, X_XResLocalClientPIDMask);
  std::map<XID, pid_t> processes;
  // Each: client, mask, length of the value in bytes, the value.
  for (size_t at = 0; at + 3 <= items.size();) {
    const uint32_t client = items[at];
    const uint32_t mask = items[at + 1];
    const size_t words = items[at + 2] / 4;
    at += 3;
    if (words > items.size() - at) break;
    if (mask == X_XResLocalClientPIDMask && words == 1 && items[at] > 0 &&
        items[at] <= static_cast<uint32_t>(std::numeric_limits<pid_t>::max())) {
      processes[clientOf(client)] = static_cast<pid_t>(items[at]);
    }
    at += words;
  }
  return processes;
}

}  // namespace tx
