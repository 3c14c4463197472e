#include "tx/Atoms.h"

#include <X11/Xatom.h>

#include <functional>
#include <map>

#include "plat/Exception.h"
#include "plat/Text.h"
#include "tx/ErrorCatcher.h"
#include "tx/TXDisplay.h"
#include "tx/XResources.h"

namespace tx {

namespace {

// The atoms that have been asked for.
struct Atoms {
  std::map<std::string, Atom, std::less<>> known{{"PRIMARY", XA_PRIMARY}, {"STRING", XA_STRING}};
};

}  // namespace

Atom internAtom(const char* name) {
  const auto [it, isNew] = TXDisplay::part<Atoms>().known.try_emplace(name, None);
  if (isNew) it->second = XInternAtom(TXDisplay::display(), name, False);
  return it->second;
}

std::string atomName(Atom atom) {
  for (const auto& [name, known] : TXDisplay::part<Atoms>().known) {
    if (known == atom) return name;
  }
  if (atom != None && TXDisplay::isOpen()) {
    const ErrorCatcher trap;
    if (const XMemory<char> name{XGetAtomName(TXDisplay::display(), atom)}) {
      return plat::escapedControls(name.get());
    }
  }
  return plat::format("0x%lx", static_cast<unsigned long>(atom));
}

}  // namespace tx
