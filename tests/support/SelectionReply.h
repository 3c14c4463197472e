#pragma once

#include <X11/Xlib.h>

namespace support {

// The answer to a selection's request, naming that property, None for a refusal; to be sent to its
// requestor.
inline XEvent selectionReply(const XSelectionRequestEvent& request, Atom property) {
  XEvent reply{};
  reply.xselection.type = SelectionNotify;
  reply.xselection.requestor = request.requestor;
  reply.xselection.selection = request.selection;
  reply.xselection.target = request.target;
  reply.xselection.time = request.time;
  reply.xselection.property = property;
  return reply;
}

}  // namespace support
