#pragma once

#include <X11/Xlib.h>

#include <string>

// What the X server holds for this connection, by type ("PIXMAP 1\n..."), from its X-Resource
// extension; empty when it has none.
std::string xResources(Display* display);
