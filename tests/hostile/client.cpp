// A hostile X client: each command is one way to trouble the agent on the display. Commands that go
// on do so until they are killed; "ready" is printed when the trouble has begun.

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xlibint.h>
#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>
#include <X11/extensions/Xdamage.h>
#include <X11/extensions/Xfixes.h>
#include <X11/extensions/Xrandr.h>
#include <unistd.h>

#undef min
#undef max

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <map>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

Display* display;
Window root;
Window own;
std::vector<std::string> arguments;

long argument(size_t index, long otherwise) {
  return index < arguments.size() ? atol(arguments[index].c_str()) : otherwise;
}
std::string word(size_t index) {
  return index < arguments.size() ? arguments[index] : std::string();
}
Atom atom(const char* name) {
  return XInternAtom(display, name, False);
}
void say(const std::string& line) {
  printf("%s\n", line.c_str());
  fflush(stdout);
}
void ready() {
  XSync(display, False);
  say("ready");
}
template <typename F>
void every(std::chrono::microseconds period, F step) {
  for (auto next = Clock::now();; next += period) {
    std::this_thread::sleep_until(next);
    step();
    XSync(display, False);
  }
}

// The agent's windows are never shown and only take input.
std::vector<Window> hiddenWindows() {
  std::vector<Window> found;
  Window ignored, *children = nullptr;
  unsigned count = 0;
  XQueryTree(display, root, &ignored, &ignored, &children, &count);
  for (unsigned i = 0; i < count; ++i) {
    XWindowAttributes attributes;
    if (XGetWindowAttributes(display, children[i], &attributes) &&
        attributes.c_class == InputOnly && attributes.override_redirect) {
      found.push_back(children[i]);
    }
  }
  if (children) XFree(children);
  if (found.empty()) say("no windows");
  return found;
}

Status copyRaw(Display*, XEvent* event, xEvent* wire) {
  memcpy(wire, reinterpret_cast<const char*>(event) + sizeof event->type + 4, sizeof *wire);
  return 1;
}

// Sends 32 bytes as an event of any type, as the X server lets anybody do.
void forge(Window to, int type, std::initializer_list<CARD32> content) {
  xEvent wire{};
  memcpy(&wire, content.begin(), content.size() * sizeof(CARD32));
  wire.u.u.type = static_cast<BYTE>(type);
  XEvent event{};
  event.type = type & 0x7F;
  memcpy(reinterpret_cast<char*>(&event) + sizeof event.type + 4, &wire, sizeof wire);
  XSendEvent(display, to, False, NoEventMask, &event);
}

void setProperty(Window window, Atom property, Atom type, int format, const void* data,
                 size_t count) {
  XChangeProperty(display, window, property, type, format, PropModeReplace,
                  static_cast<const unsigned char*>(data), static_cast<int>(count));
}

// flood KIND EVENTS-A-SECOND (0: as many as go)
void flood() {
  const std::string kind = word(0);
  const long rate = argument(1, 0);
  const std::vector<Window> windows = hiddenWindows();
  int fixes = 0, ignored = 0, highest = 0;
  XFixesQueryExtension(display, &fixes, &ignored);
  XDisplayKeycodes(display, &ignored, &highest);
  for (int type = 2; type < 128; ++type) XESetEventToWire(display, type, copyRaw);
  const Atom selections[] = {XA_PRIMARY, atom("CLIPBOARD")};
  const Atom targets[] = {atom("TIMESTAMP"), atom("TARGETS"), atom("UTF8_STRING"), XA_STRING};
  const Atom properties[] = {atom("TIMESTAMP"), atom("TARGETS"), atom("SELECTION_STRING"),
                             atom("SELECTION_STRING")};
  const auto id = [](XID xid) { return static_cast<CARD32>(xid); };
  unsigned n = 0;
  const auto one = [&] {
    const Window to = windows[++n % windows.size()];
    const unsigned turn = n / static_cast<unsigned>(windows.size());
    const Atom selection = selections[turn % 2];
    if (kind == "cursor") {  // subtype, window, cursor serial, timestamp, name
      forge(to, fixes + XFixesCursorNotify, {0, id(root), n, n, 0});
    } else if (kind == "owner") {
      // subtype, window, owner, selection, timestamp, selection timestamp
      forge(to, fixes + XFixesSelectionNotify, {0, id(to), id(own), id(selection), n, n});
    } else if (kind == "request") {  // time, owner, requestor, selection, target, property
      forge(to, SelectionRequest,
            {0, 0, id(to), id(own), id(selection), XA_STRING, id(properties[2])});
    } else if (kind == "answer") {  // time, requestor, selection, target, property
      forge(to, SelectionNotify,
            {0, n, id(to), id(selection), id(targets[turn % 4]), id(properties[turn % 4])});
    } else if (kind == "configure") {  // event, window, above, x y, width height
      forge(to, ConfigureNotify, {0, id(root), id(root), 0, n % 100, 0x04000300 + n % 100});
    } else if (kind == "mapping") {  // request, first keycode, count
      forge(to, MappingNotify, {0, 0x00F80801});
    } else if (kind == "real-property") {
      setProperty(to, properties[turn % 4], XA_INTEGER, 8, "", 1);
    } else if (kind == "real-mapping") {  // of a keycode without symbols
      KeySym symbols[] = {XK_VoidSymbol, NoSymbol};
      if (n % 2) symbols[1] = XK_VoidSymbol;
      XChangeKeyboardMapping(display, highest - 1, 2, symbols, 1);
    } else if (kind == "paste") {
      XConvertSelection(display, selection, XA_STRING, properties[turn % 4], own, CurrentTime);
    } else {
      say("no flood of " + kind);
      exit(2);
    }
  };
  ready();
  const auto begin = Clock::now();
  for (long sent = 0;;) {
    long due = 1000;
    if (rate > 0) {
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
      const std::chrono::duration<double> passed = Clock::now() - begin;
      due = static_cast<long>(passed.count() * static_cast<double>(rate)) - sent;
    }
    sent += due;
    for (; due > 0; --due) one();
    XFlush(display);
    while (XPending(display) > 0) {
      XEvent event;
      XNextEvent(display, &event);
    }
  }
}

// witness: a window over the screen that has the focus; prints the keys and buttons that it gets.
void witness() {
  XSetWindowAttributes attributes{};
  attributes.override_redirect = True;
  attributes.event_mask = KeyPressMask | KeyReleaseMask | ButtonPressMask | ButtonReleaseMask |
                          ExposureMask | FocusChangeMask;
  const Window window =
      XCreateWindow(display, root, 0, 0, 4000, 4000, 0, CopyFromParent, InputOutput, nullptr,
                    CWOverrideRedirect | CWEventMask, &attributes);
  XMapRaised(display, window);
  XEvent event;
  XWindowEvent(display, window, ExposureMask, &event);
  XSetInputFocus(display, window, RevertToPointerRoot, CurrentTime);
  ready();
  for (;;) {
    XNextEvent(display, &event);
    switch (event.type) {
      case KeyPress:
      case KeyRelease:
        say((event.type == KeyPress ? "+" : "-") + std::to_string(event.xkey.keycode));
        break;
      case ButtonPress:
      case ButtonRelease:
        say((event.type == ButtonPress ? "+b" : "-b") + std::to_string(event.xbutton.button));
        break;
      case FocusOut:
        XSetInputFocus(display, window, RevertToPointerRoot, CurrentTime);
        break;
      default:
        break;
    }
  }
}

// spoil [destroy]: the agent's windows lose their properties, or their lives.
void spoil() {
  for (const Window window : hiddenWindows()) {
    if (word(0) == "destroy") {
      XDestroyWindow(display, window);
    } else {
      setProperty(window, atom("TIMESTAMP"), XA_STRING, 8, "\7\0\0\0\0\0\0", 1);
    }
  }
  ready();
}

Cursor makeCursor(unsigned width, unsigned height, unsigned short shade) {
  const Pixmap shape = XCreatePixmap(display, root, width, height, 1);
  const GC gc = XCreateGC(display, shape, 0, nullptr);
  XSetForeground(display, gc, 1);
  XFillRectangle(display, shape, gc, 0, 0, width, height);
  XColor front{0, shade, shade, 0, DoRed | DoGreen | DoBlue, 0};
  XColor back{};
  const Cursor cursor = XCreatePixmapCursor(display, shape, shape, &front, &back, 0, 0);
  XFreeGC(display, gc);
  XFreePixmap(display, shape);
  return cursor;
}

// cursor WIDTH HEIGHT [CHANGES-A-SECOND]
void cursor() {
  const auto width = static_cast<unsigned>(argument(0, 16));
  const auto height = static_cast<unsigned>(argument(1, 16));
  const long rate = argument(2, 0);
  const Cursor cursors[] = {makeCursor(width, height, 1000), makeCursor(width, height, 60000)};
  XGrabPointer(display, root, False, 0, GrabModeAsync, GrabModeAsync, None, cursors[0],
               CurrentTime);
  ready();
  if (rate == 0) pause();
  int turn = 0;
  every(std::chrono::microseconds(1000000 / rate),
        [&] { XChangeActivePointerGrab(display, 0, cursors[++turn % 2], CurrentTime); });
}

// windows NUMBER [PID]: that many, which claim to be of a process.
void windows() {
  const long pid = argument(1, 1);
  for (long i = 0; i < argument(0, 10000); ++i) {
    const Window window =
        XCreateSimpleWindow(display, root, int(i % 100), int(i / 100), 3, 3, 0, 0, 0);
    setProperty(window, atom("_NET_WM_PID"), XA_CARDINAL, 32, &pid, 1);
    XMapWindow(display, window);
  }
  ready();
  pause();
}

// Xlib frees only its own.
void freeContext(XID id) {
  Display* const dpy = display;  // as the macro wants it
  xResourceReq* request = nullptr;
  LockDisplay(dpy);
  GetResReq(FreeGC, static_cast<CARD32>(id), request);
  UnlockDisplay(dpy);
}

// free [damage | pixmap | context]: what the agent holds that anybody may free; all of it.
void freeResources() {
  XID base = 0;
  for (const Window window : hiddenWindows()) base = window & ~XID{0x1FFFFF};
  int ignored = 0;
  XFixesQueryExtension(display, &ignored, &ignored);
  XDamageQueryExtension(display, &ignored, &ignored);
  for (XID id = base; id < base + 1000; ++id) {
    const auto wanted = [](const char* what) { return word(0).empty() || word(0) == what; };
    if (wanted("damage")) XDamageDestroy(display, id);
    if (wanted("pixmap")) XFreePixmap(display, id);
    if (wanted("context")) freeContext(id);
  }
  ready();
}

// kill: ends the agent's connection.
void killConnection() {
  XKillClient(display, hiddenWindows().at(0));
}

// grab SECONDS: nobody else is served.
void grab() {
  XGrabServer(display);
  ready();
  std::this_thread::sleep_for(std::chrono::milliseconds(argument(0, 10) * 1000));
  XUngrabServer(display);
  XSync(display, False);
  say("released");
}

// own MODE: owns both selections and answers
//   pieces: one piece, then nothing; types: with types and formats that do not fit;
//   text TEXT: as it should be; silent: never
void ownSelections() {
  const std::string mode = word(0);
  const Atom incr = atom("INCR"), utf8 = atom("UTF8_STRING");
  XSelectInput(display, own, PropertyChangeMask);
  unsigned char nothing = 0;
  XChangeProperty(display, own, atom("T"), XA_STRING, 8, PropModeAppend, &nothing, 0);
  XEvent event;
  XWindowEvent(display, own, PropertyChangeMask, &event);
  const Time time = event.xproperty.time;
  for (const Atom selection : {XA_PRIMARY, atom("CLIPBOARD")}) {
    XSetSelectionOwner(display, selection, own, time);
  }
  ready();
  const std::string piece(60000, 'x');
  unsigned turn = 0;
  for (;;) {
    XNextEvent(display, &event);
    if (event.type != SelectionRequest || mode == "silent") continue;
    const XSelectionRequestEvent& r = event.xselectionrequest;
    XEvent reply{};
    reply.xselection = {SelectionNotify, 0,        True,       display, r.requestor,
                        r.selection,     r.target, r.property, r.time};
    if (mode == "types") {
      const Atom types[] = {XA_ATOM, XA_INTEGER, incr, utf8, XA_WINDOW, XA_STRING};
      const int formats[] = {8, 16, 32};
      setProperty(r.requestor, r.property, types[turn % 6], formats[turn / 6 % 3], piece.data(),
                  turn / 18 % 2 ? 0 : 1000);
      ++turn;
    } else if (r.target == atom("TARGETS")) {
      const Atom targets[] = {utf8, XA_STRING, atom("TIMESTAMP")};
      setProperty(r.requestor, r.property, XA_ATOM, 32, targets, 3);
    } else if (r.target == atom("TIMESTAMP")) {
      const long stamp = static_cast<long>(time);
      setProperty(r.requestor, r.property, XA_INTEGER, 32, &stamp, 1);
    } else if (mode == "pieces") {
      XSelectInput(display, r.requestor, PropertyChangeMask);
      const long size = 1 << 30;
      setProperty(r.requestor, r.property, incr, 32, &size, 1);
    } else {
      const std::string text = word(1);
      setProperty(r.requestor, r.property, r.target, 8, text.data(), text.size());
    }
    XSendEvent(display, r.requestor, False, NoEventMask, &reply);
    XSync(display, False);
  }
}

// vanish NUMBER: requestors of both selections that are gone before the answer.
void vanish() {
  for (long i = 0; i < argument(0, 1000); ++i) {
    const Window window = XCreateSimpleWindow(display, root, 0, 0, 1, 1, 0, 0, 0);
    XConvertSelection(display, i % 2 ? XA_PRIMARY : atom("CLIPBOARD"), atom("UTF8_STRING"),
                      atom("T"), window, CurrentTime);
    XDestroyWindow(display, window);
    if (i % 50 == 0) XSync(display, False);
  }
  ready();
}

// remove-modes: takes away every mode that an output does not come with, again and again.
void removeModes() {
  ready();
  for (;;) {
    XRRScreenResources* const resources = XRRGetScreenResourcesCurrent(display, root);
    for (int i = 0; i < resources->nmode; ++i) {
      const XRRModeInfo& mode = resources->modes[i];
      if (!strstr(mode.name, "_ruvo")) continue;
      for (int o = 0; o < resources->noutput; ++o) {
        XRRDeleteOutputMode(display, resources->outputs[o], mode.id);
      }
      XRRDestroyMode(display, mode.id);
    }
    XRRFreeScreenResources(resources);
    XSync(display, False);
  }
}

// blink: a square that changes colour 50 times a second.
void blink() {
  const GC gc = XCreateGC(display, root, 0, nullptr);
  XSetSubwindowMode(display, gc, IncludeInferiors);
  unsigned long colour = 0;
  ready();
  every(std::chrono::milliseconds(20), [&] {
    XSetForeground(display, gc, colour += 0x010305);
    XFillRectangle(display, root, gc, 10, 10, 100, 100);
  });
}

// state: auto-repeat, keys that are down, the mask of buttons that are down.
void state() {
  XKeyboardState keyboard;
  XGetKeyboardControl(display, &keyboard);
  char keys[32];
  XQueryKeymap(display, keys);
  int down = 0;
  for (int i = 0; i < 256; ++i) down += keys[i / 8] >> (i % 8) & 1;
  Window ignored;
  int x, y;
  unsigned mask = 0;
  XQueryPointer(display, root, &ignored, &ignored, &x, &y, &x, &y, &mask);
  say(std::string(keyboard.global_auto_repeat == AutoRepeatModeOn ? "repeat" : "no-repeat") + " " +
      std::to_string(down) + " " + std::to_string(mask & 0x1F00));
}

}  // namespace

int main(int argc, char** argv) {
  const std::map<std::string, void (*)()> commands = {
      {"blink", blink},       {"cursor", cursor},
      {"flood", flood},       {"free", freeResources},
      {"grab", grab},         {"kill", killConnection},
      {"own", ownSelections}, {"remove-modes", removeModes},
      {"spoil", spoil},       {"state", state},
      {"vanish", vanish},     {"windows", windows},
      {"witness", witness}};
  const auto command = commands.find(argc > 1 ? argv[1] : "");
  if (command == commands.end()) return 2;
  arguments.assign(argv + 2, argv + argc);
  display = XOpenDisplay(nullptr);
  if (!display) return 1;
  XSetErrorHandler([](Display*, XErrorEvent*) { return 0; });
  root = DefaultRootWindow(display);
  own = XCreateSimpleWindow(display, root, 0, 0, 1, 1, 0, 0, 0);
  command->second();
  XSync(display, False);
  return 0;
}
