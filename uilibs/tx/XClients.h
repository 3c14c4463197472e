#pragma once

#include <X11/Xlib.h>
#include <sys/types.h>

#include <map>
#include <optional>

namespace tx {

// The resource base of the client that made a resource: what all of its resources have in common.
XID clientOf(XID resource);

// The processes behind the X server's local clients, by resource base, as the server itself knows
// them (X-Resource extension, version 1.2). Nothing when the server has no such extension. One
// round trip, two more when it is asked first.
std::optional<std::map<XID, pid_t>> localClientProcesses();

}  // namespace tx
