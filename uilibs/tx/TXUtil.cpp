#include "tx/TXUtil.h"

#include <X11/Xatom.h>

#include <functional>
#include <map>
#include <memory>

#include "plat/Assert.h"
#include "plat/Exception.h"
#include "tx/ErrorCatcher.h"
#include "tx/TXDisplay.h"
#include "tx/TXWindow.h"
#include "tx/XResources.h"

namespace tx {

namespace {

TXWindow& timeWindow() {
  static std::unique_ptr<TXWindow> window;
  if (!window) {
    window = std::make_unique<TXWindow>();
    TXDisplay::atClose([] { window.reset(); });
  }
  return *window;
}

// The atoms of the open display that have been asked for.
std::map<std::string, Atom, std::less<>>& knownAtoms() {
  static std::map<std::string, Atom, std::less<>> atoms;
  static unsigned generation = 0;
  if (generation != TXDisplay::generation()) {
    generation = TXDisplay::generation();
    atoms = {{"PRIMARY", XA_PRIMARY}, {"STRING", XA_STRING}};
  }
  return atoms;
}

}  // namespace

uint32_t getServerTime() {
  if (!TXDisplay::isOpen()) return CurrentTime;
  Display* const display = TXDisplay::display();
  const Window window = timeWindow().id();
  const Atom property = internAtom("TIMESTAMP");
  // Appending nothing changes nothing, and is announced with the time all the same.
  const unsigned char nothing = 0;
  XChangeProperty(display, window, property, XA_INTEGER, 32, PropModeAppend, &nothing, 0);
  XSync(display, False);
  if (TXDisplay::isLost()) return CurrentTime;

  bool gotTime = false;
  uint32_t time = 0;
  XEvent event;
  while (XCheckTypedWindowEvent(display, window, PropertyNotify, &event)) {
    if (event.xproperty.atom != property) continue;
    gotTime = true;
    time = static_cast<uint32_t>(event.xproperty.time);
  }
  PLAT_ASSERT(gotTime);
  return time;
}

Atom internAtom(const char* name) {
  const auto [it, isNew] = knownAtoms().try_emplace(name, None);
  if (isNew) it->second = XInternAtom(TXDisplay::display(), name, False);
  return it->second;
}

std::string atomName(Atom atom) {
  for (const auto& [name, known] : knownAtoms()) {
    if (known == atom) return name;
  }
  if (atom != None && TXDisplay::isOpen()) {
    const ErrorCatcher trap;
    if (const XMemory<char> name{XGetAtomName(TXDisplay::display(), atom)}) return name.get();
  }
  return plat::format("0x%lx", static_cast<unsigned long>(atom));
}

}  // namespace tx
