#pragma once

#include <X11/Xlib.h>

#include <string>

namespace tx {

// The atom of the name (static storage), interned once.
Atom internAtom(const char* name);
// The name of an atom; "0x..." for one that does not exist. A round trip unless internAtom() knows
// it.
std::string atomName(Atom atom);

}  // namespace tx
