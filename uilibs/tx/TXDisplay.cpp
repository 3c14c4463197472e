#include "tx/TXDisplay.h"

#include <dlfcn.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <utility>
#include <vector>

#include "plat/Assert.h"
#include "plat/Exception.h"
#include "plat/config/BoolParameter.h"
#include "tx/DisplayLostException.h"
#include "tx/ErrorCatcher.h"

namespace tx {

namespace {

plat::BoolParameter xsync("xsync", "Enable X synchronization for debugging", false, true);
plat::BoolParameter owncmap(
    "owncmap",
    "Use a private colormap rather than the default one, to prevent other applications of being "
    "starved of colors.",
    false, true);

struct State {
  Display* display = nullptr;
  bool lost = false;
  bool hasExitHandler = false;
  unsigned generation = 0;
  int screen = 0;
  Window root = None;
  Visual* visual = nullptr;
  int depth = 0;
  Colormap colourMap = None;
  unsigned long blackPixel = 0;
  unsigned long whitePixel = 0;
  GC gc = nullptr;
  XFontStruct* font = nullptr;
  int buttons = 0;
  uint8_t buttonMap[TXDisplay::kMaxButtons] = {};
  std::vector<std::function<void()>> atClose;
};

State state;

const State& opened() {
  PLAT_ASSERT(state.display != nullptr);
  return state;
}

using ExitHandler = void (*)(Display*, void*);
using SetExitHandler = void (*)(Display*, ExitHandler, void*);

void markLost(Display* display, void*) {
  if (display == state.display) state.lost = true;
}

// Xlib ends the process when this returns, unless the display has an exit handler, as libX11 offers
// from 1.7 on. Without one the only way back to the loop is past Xlib's frames; the display is not
// used again.
int onIOError(Display* display) {
  markLost(display, nullptr);
  if (display == state.display && !state.hasExitHandler) throw DisplayLostException();
  return 0;
}

// The handler concerns the process's display; for others Xlib's own behaviour remains.
void installIOErrorHandler(Display* display) {
  const auto setExitHandler =
      reinterpret_cast<SetExitHandler>(dlsym(RTLD_DEFAULT, "XSetIOErrorExitHandler"));
  state.hasExitHandler = setExitHandler != nullptr;
  if (setExitHandler != nullptr) setExitHandler(display, markLost, nullptr);
  XSetIOErrorHandler(onIOError);
}

Display* openWithRetry() {
  if (Display* display = XOpenDisplay(nullptr)) return display;
  // Cookies are filed under the host name that the machine had at login; "localhost" finds those of
  // a machine that has been renamed since.
  setenv("XAUTHLOCALHOSTNAME", "localhost", 1);
  if (Display* display = XOpenDisplay(nullptr)) return display;
  throw plat::Exception("unable to open display \"%s\"", XDisplayName(nullptr));
}

XFontStruct* loadFont(Display* display) {
  for (const char* name : {"-*-helvetica-medium-r-*-*-12-*-*-*-*-*-*-*", "fixed"}) {
    if (XFontStruct* font = XLoadQueryFont(display, name)) return font;
  }
  fputs("Failed to load any font\n", stderr);
  exit(1);
}

}  // namespace

void TXDisplay::open(const char* name) {
  if (state.display != nullptr) return;
  if (name != nullptr && *name != '\0') setenv("DISPLAY", name, 1);
  Display* const display = openWithRetry();

  const unsigned generation = state.generation + 1;
  state = State();
  state.generation = generation;
  state.display = display;
  ErrorCatcher::installDefaultHandler();
  installIOErrorHandler(display);
  if (xsync.value()) XSynchronize(display, True);

  state.screen = DefaultScreen(display);
  state.root = RootWindow(display, state.screen);
  state.visual = DefaultVisual(display, state.screen);
  state.depth = DefaultDepth(display, state.screen);
  state.colourMap = owncmap.value() ? XCreateColormap(display, state.root, state.visual, AllocNone)
                                    : DefaultColormap(display, state.screen);
  state.blackPixel = BlackPixel(display, state.screen);
  state.whitePixel = WhitePixel(display, state.screen);
  state.font = loadFont(display);
  XGCValues values{};
  values.foreground = state.blackPixel;
  values.background = state.whitePixel;
  values.font = state.font->fid;
  state.gc = XCreateGC(display, state.root, GCForeground | GCBackground | GCFont, &values);
  state.buttons =
      std::min(XGetPointerMapping(display, state.buttonMap, kMaxButtons), int{kMaxButtons});
}

void TXDisplay::close() {
  if (state.display == nullptr) return;
  while (!state.atClose.empty()) {
    const auto function = std::move(state.atClose.back());
    state.atClose.pop_back();
    function();
  }
  Display* const display = state.display;
  if (state.lost && !state.hasExitHandler) {
    // Left in the middle of a request: Xlib's part of it is given up, the descriptor is not.
    ::close(ConnectionNumber(display));
  } else {
    // After a loss these only release memory.
    XFreeFont(display, state.font);
    XFreeGC(display, state.gc);
    XCloseDisplay(display);
  }
  state.display = nullptr;
  state.lost = false;
}

bool TXDisplay::isOpen() {
  return state.display != nullptr && !state.lost;
}
bool TXDisplay::isLost() {
  return state.lost;
}
unsigned TXDisplay::generation() {
  return state.generation;
}

void TXDisplay::atClose(std::function<void()> function) {
  PLAT_ASSERT(state.display != nullptr);
  state.atClose.push_back(std::move(function));
}

Display* TXDisplay::display() {
  return opened().display;
}
int TXDisplay::screen() {
  return opened().screen;
}
Window TXDisplay::root() {
  return opened().root;
}
Visual* TXDisplay::visual() {
  return opened().visual;
}
int TXDisplay::depth() {
  return opened().depth;
}
Colormap TXDisplay::colourMap() {
  return opened().colourMap;
}
unsigned long TXDisplay::blackPixel() {
  return opened().blackPixel;
}
unsigned long TXDisplay::whitePixel() {
  return opened().whitePixel;
}
GC TXDisplay::defaultGC() {
  return opened().gc;
}
XFontStruct* TXDisplay::font() {
  return opened().font;
}

int TXDisplay::pointerButtons(uint8_t map[kMaxButtons]) {
  std::copy_n(opened().buttonMap, kMaxButtons, map);
  return state.buttons;
}

}  // namespace tx
