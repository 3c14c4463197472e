#include "x11/XResourceCount.h"

#include <X11/Xlibint.h>
#undef min
#undef max

#include <set>
#include <vector>

namespace {

// The request and reply of XResQueryClientResources, version 1.0 of the extension.
struct Request {
  CARD8 reqType;
  CARD8 minor;
  CARD16 length;
  CARD32 xid;
};
struct Reply {
  CARD8 type;
  CARD8 pad;
  CARD16 sequenceNumber;
  CARD32 length;
  CARD32 count;
  CARD32 padding[5];
};
static_assert(sizeof(Request) == 8 && sizeof(Reply) == 32);

}  // namespace

std::string xResources(Display* display) {
  int opcode = 0;
  int event = 0;
  int error = 0;
  if (!XQueryExtension(display, "X-Resource", &opcode, &event, &error)) return {};
  std::vector<CARD32> types;
  LockDisplay(display);
  auto* const request =
      static_cast<Request*>(_XGetRequest(display, static_cast<CARD8>(opcode), sizeof(Request)));
  request->minor = 2;
  request->xid = static_cast<CARD32>(display->resource_base);
  Reply reply;
  if (_XReply(display, reinterpret_cast<xReply*>(&reply), 0, xFalse)) {
    types.resize(reply.count * 2);
    _XRead(display, reinterpret_cast<char*>(types.data()),
           static_cast<long>(types.size() * sizeof(CARD32)));
  }
  UnlockDisplay(display);

  std::set<std::string> lines;
  for (size_t i = 0; i < types.size(); i += 2) {
    char* const name = XGetAtomName(display, types[i]);
    lines.insert(std::string(name) + " " + std::to_string(types[i + 1]) + "\n");
    XFree(name);
  }
  std::string text;
  for (const std::string& line : lines) text += line;
  return text;
}
