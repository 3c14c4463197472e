#include "tx/TXDisplay.h"

#include <dlfcn.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <utility>

#include "plat/Assert.h"
#include "plat/Exception.h"
#include "plat/config/BoolParameter.h"
#include "tx/ResourceIds.h"
#include "tx/XErrorLog.h"

namespace tx {

namespace {

plat::BoolParameter xsync("xsync", "Enable X synchronization for debugging", false, true);
plat::BoolParameter owncmap(
    "owncmap",
    "Use a private colormap rather than the default one, to prevent other applications of being "
    "starved of colors.",
    false, true);

using ExitHandler = void (*)(Display*, void*);
using SetExitHandler = void (*)(Display*, ExitHandler, void*);

Display* openWithRetry(const char* name) {
  if (name && *name != '\0') setenv("DISPLAY", name, 1);
  if (Display* display = XOpenDisplay(nullptr)) return display;
  // Cookies are filed under the host name that the machine had at login; "localhost" finds those of
  // a machine that has been renamed since.
  setenv("XAUTHLOCALHOSTNAME", "localhost", 1);
  if (Display* display = XOpenDisplay(nullptr)) return display;
  throw plat::Exception("unable to open display \"%s\"", XDisplayName(nullptr));
}

// Its characters' sizes, which can be many, are of no interest. It is loaded by the name that was
// found: for patterns that end in "-*" Xlib reads the locale's tables first.
Font loadFont(Display* display) {
  for (const char* pattern : {"-*-helvetica-medium-r-*-*-12-*-*-*-*-*-*-*", "fixed"}) {
    int count = 0;
    char** const found = XListFonts(display, pattern, 1, &count);
    if (!found) continue;
    // What is listed may be damaged.
    static bool isDamaged;
    isDamaged = false;
    const XErrorHandler former = XSetErrorHandler([](Display*, XErrorEvent*) {
      isDamaged = true;
      return 0;
    });
    const Font font = XLoadFont(display, found[0]);
    XFreeFontNames(found);
    XSync(display, False);
    XSetErrorHandler(former);
    if (!isDamaged) return font;
  }
  fputs("Failed to load any font\n", stderr);
  exit(1);
}

}  // namespace

TXDisplay::TXDisplay(Display* display) : display_(display), root_(DefaultRootWindow(display)) {
  PLAT_ASSERT(current_ == nullptr);
  current_ = this;
  XSetErrorHandler(logXError);
  // These concern the process's display; for others Xlib's own behaviour remains.
  if (const auto setExitHandler =
          reinterpret_cast<SetExitHandler>(dlsym(RTLD_DEFAULT, "XSetIOErrorExitHandler"))) {
    hasExitHandler_ = true;
    setExitHandler(display, onLost, nullptr);
  }
  XSetIOErrorHandler(onIOError);
  guardResourceIds(display);
}

TXDisplay::TXDisplay(const char* name) : TXDisplay(openWithRetry(name)) {
  if (xsync.value()) XSynchronize(display_, True);
  colourMap_ = owncmap.value() ? XCreateColormap(display_, root_, visual(), AllocNone)
                               : DefaultColormap(display_, screen());
  font_ = loadFont(display_);
  XGCValues values{};
  values.foreground = BlackPixel(display_, screen());
  values.background = WhitePixel(display_, screen());
  values.font = font_;
  gc_ = XCreateGC(display_, root_, GCForeground | GCBackground | GCFont, &values);
  buttons_ = std::min(XGetPointerMapping(display_, buttonMap_, kMaxButtons), int{kMaxButtons});
}

TXDisplay::~TXDisplay() {
  // Errors that are still to come belong to the traps that are still known.
  attempt([this] { XSync(display_, False); });
  while (!parts_.empty()) {
    const Owned last = std::move(parts_.back());
    parts_.pop_back();
    slots_[last.slot] = nullptr;
  }
  // What is released now may be gone already.
  XSetErrorHandler([](Display*, XErrorEvent*) { return 0; });
  attempt([this] {
    if (font_ != None) XUnloadFont(display_, font_);
    font_ = None;
    if (gc_) XFreeGC(display_, gc_);
    gc_ = nullptr;
    // The last round trip that can fail.
    XSync(display_, False);
  });
  if (lost_) {
    // Perhaps in the middle of a request, and libXext may have freed what it closes again: Xlib's
    // part is given up, the descriptor is not. It stays known, so that it counts as no leak.
    struct GivenUp {
      Display* display;
      GC gc;
    };
    static auto* const givenUp = new std::vector<GivenUp>;
    givenUp->push_back({display_, gc_});
    ::close(ConnectionNumber(display_));
  } else {
    attempt([this] { XCloseDisplay(display_); });
  }
  current_ = nullptr;
}

void TXDisplay::onLost(Display* display, void*) {
  if (current_ && display == current_->display_) current_->lost_ = true;
}

// Xlib ends the process when this returns, unless the display has an exit handler, as libX11 offers
// from 1.7 on. Without one, and where nobody could tell what the call returns then, the way back to
// the loop is past Xlib's frames; the display is not used again.
int TXDisplay::onIOError(Display* display) {
  onLost(display, nullptr);
  if (isLost() && display == current_->display_ && (!current_->hasExitHandler_ || throwing_ > 0)) {
    throw DisplayLostException();
  }
  return 0;
}

TXDisplay& TXDisplay::get() {
  PLAT_ASSERT(current_ != nullptr);
  return *current_;
}

void* TXDisplay::add(size_t slot, std::shared_ptr<void> part) {
  void* const added = part.get();
  if (slot >= slots_.size()) slots_.resize(slot + 1);
  slots_[slot] = added;
  parts_.push_back({slot, std::move(part)});
  return added;
}

int TXDisplay::screen() {
  return DefaultScreen(display());
}
Visual* TXDisplay::visual() {
  return DefaultVisual(display(), screen());
}
int TXDisplay::depth() {
  return DefaultDepth(display(), screen());
}

int TXDisplay::pointerButtons(uint8_t map[kMaxButtons]) {
  std::copy_n(get().buttonMap_, kMaxButtons, map);
  return get().buttons_;
}

}  // namespace tx
