// A whole agent on a real X server, with a neighbour that does what the input says: the input's
// steps are what any X client may do (selections, properties, cursors, keymaps, monitors, forged
// events) and messages of the server with any body.

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/extensions/Xrandr.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "io/FdIo.h"
#include "io/LogDestIpc.h"
#include "os/AppLoop.h"
#include "plat/FileDescriptor.h"
#include "plat/log/LogManager.h"
#include "support/XServer.h"
#include "svr/AgentAppX11.h"
#include "ui/AppLoopImpl.h"

// Defines macros of common names.
#include <X11/Xlibint.h>
#undef min
#undef max

namespace {

// Of the whole process: the X server, and the neighbour's connection to it.
std::unique_ptr<support::XServer> xserver;
support::XConnection neighbour;
XErrorHandler agentsHandler;

constexpr const char* kMessages[] = {"start",           "stop",           "fbUpdateRequest",
                                     "keyEvent",        "pointerEvent",   "clientCutText",
                                     "setParams",       "setDisplayMode", "setMonitor",
                                     "SetXServerOwner", "setLogLevel",    "badMsg"};
constexpr const char* kAtoms[] = {
    "TIMESTAMP",   "TARGETS",     "UTF8_STRING",      "STRING",
    "INCR",        "ATOM",        "INTEGER",          "SELECTION_STRING",
    "CUT_BUFFER0", "_NET_WM_PID", "_XKB_RULES_NAMES", "RESOURCE_MANAGER",
    "WINDOW",      "PRIMARY",     "CLIPBOARD"};
constexpr size_t kMaxSteps = 40;

Status copyRaw(Display*, XEvent* event, xEvent* wire) {
  memcpy(wire, reinterpret_cast<const char*>(event) + 8, sizeof *wire);
  return 1;
}

class Neighbour {
 public:
  Neighbour(FuzzedDataProvider& input, int channel)
      : input_(input),
        channel_(channel),
        display_(neighbour.get()),
        root_(DefaultRootWindow(display_)),
        window_(XCreateSimpleWindow(display_, root_, 0, 0, 9, 9, 0, 0, 0)) {}
  ~Neighbour() {
    XUngrabPointer(display_, CurrentTime);
    XDestroyWindow(display_, window_);
    XSync(display_, True);
  }

  // Takes the next step. False when there is none.
  bool step() {
    if (input_.remaining_bytes() == 0 || ++steps_ > kMaxSteps) return false;
    switch (input_.ConsumeIntegralInRange(0, 9)) {
      case 0:
      case 1:
      case 2:
        sendMessage();
        break;
      case 3:
        XSetSelectionOwner(display_, input_.ConsumeBool() ? XA_PRIMARY : atomOf("CLIPBOARD"),
                           window_, CurrentTime);
        break;
      case 4:
        setProperty(anyWindow(), atom());
        break;
      case 5:
        setCursor();
        break;
      case 6:
        setKeys();
        break;
      case 7:
        setMonitor();
        break;
      case 8:
        sendEvent();
        break;
      default:
        if (input_.ConsumeBool()) {
          XDestroyWindow(display_, hiddenWindow());
        } else {
          XConvertSelection(display_, XA_PRIMARY, atom(), atom(), window_, CurrentTime);
        }
    }
    return true;
  }

  // Sees to the X server's having done all that was asked for, and answers requests for selections.
  void settle() {
    XSync(display_, False);
    while (XPending(display_) > 0) {
      XEvent event;
      XNextEvent(display_, &event);
      if (event.type == SelectionRequest) answer(event.xselectionrequest);
    }
    XSync(display_, False);
    char some[65536];
    while (recv(channel_, some, sizeof some, MSG_DONTWAIT) > 0) {
    }
  }

 private:
  Atom atomOf(const char* name) { return XInternAtom(display_, name, False); }
  Atom atom() { return atomOf(input_.PickValueInArray(kAtoms)); }

  // One of the agent's, which are never mapped and only take input.
  Window hiddenWindow() {
    std::vector<Window> found;
    Window ignored, *children = nullptr;
    unsigned count = 0;
    XQueryTree(display_, root_, &ignored, &ignored, &children, &count);
    for (unsigned i = 0; i < count; ++i) {
      XWindowAttributes attributes;
      if (XGetWindowAttributes(display_, children[i], &attributes) &&
          attributes.c_class == InputOnly) {
        found.push_back(children[i]);
      }
    }
    if (children) XFree(children);
    if (found.empty()) return window_;
    return found[input_.ConsumeIntegralInRange<size_t>(0, found.size() - 1)];
  }
  Window anyWindow() {
    switch (input_.ConsumeIntegralInRange(0, 2)) {
      case 0:
        return root_;
      case 1:
        return window_;
      default:
        return hiddenWindow();
    }
  }

  void setProperty(Window window, Atom property) {
    const int format = input_.PickValueInArray({8, 16, 32});
    const Atom type = atom();
    std::string bytes = input_.ConsumeRandomLengthString(4096);
    // Now and then more than is read at once.
    if (input_.ConsumeIntegralInRange(0, 15) == 0) bytes.resize(300000, 'x');
    const size_t items = bytes.size() / static_cast<size_t>(format / 8);
    std::vector<long> longs(items);
    for (size_t i = 0; format == 32 && i < items; ++i) memcpy(&longs[i], bytes.data() + 4 * i, 4);
    XChangeProperty(display_, window, property, type, format,
                    input_.ConsumeBool() ? PropModeReplace : PropModeAppend,
                    format == 32 ? reinterpret_cast<const unsigned char*>(longs.data())
                                 : reinterpret_cast<const unsigned char*>(bytes.data()),
                    static_cast<int>(items));
  }

  void answer(const XSelectionRequestEvent& request) {
    XEvent reply{};
    reply.xselection = {SelectionNotify,
                        0,
                        True,
                        display_,
                        request.requestor,
                        request.selection,
                        request.target,
                        request.property,
                        request.time};
    switch (input_.ConsumeIntegralInRange(0, 3)) {
      case 0:
        return;
      case 1:
        reply.xselection.property = None;
        break;
      default:
        setProperty(request.requestor, request.property);
    }
    XSendEvent(display_, request.requestor, False, NoEventMask, &reply);
  }

  void setCursor() {
    const unsigned width = input_.ConsumeIntegralInRange(1u, 600u);
    const unsigned height = input_.ConsumeIntegralInRange(1u, 600u);
    const Pixmap shape = XCreatePixmap(display_, root_, width, height, 1);
    XColor colour{};
    const Cursor cursor = XCreatePixmapCursor(display_, shape, shape, &colour, &colour,
                                              input_.ConsumeIntegralInRange(0u, width - 1),
                                              input_.ConsumeIntegralInRange(0u, height - 1));
    XFreePixmap(display_, shape);
    XGrabPointer(display_, root_, False, 0, GrabModeAsync, GrabModeAsync, None, cursor,
                 CurrentTime);
    XFreeCursor(display_, cursor);
  }

  void setKeys() {
    const int first = input_.ConsumeIntegralInRange(8, 250);
    const int each = input_.ConsumeIntegralInRange(1, 6);
    KeySym symbols[30];
    for (KeySym& symbol : symbols) symbol = input_.ConsumeIntegral<uint32_t>() & 0x1FFFFFFF;
    XChangeKeyboardMapping(display_, first, each, symbols, std::min(30 / each, 256 - first));
  }

  void setMonitor() {
    XRRMonitorInfo* const monitor = XRRAllocateMonitor(display_, 0);
    monitor->name =
        XInternAtom(display_, ("m" + input_.ConsumeRandomLengthString(3)).c_str(), False);
    monitor->x = input_.ConsumeIntegral<int16_t>();
    monitor->y = input_.ConsumeIntegral<int16_t>();
    monitor->width = input_.ConsumeIntegral<uint16_t>();
    monitor->height = input_.ConsumeIntegral<uint16_t>();
    if (input_.ConsumeBool()) {
      XRRSetMonitor(display_, root_, monitor);
    } else {
      XRRDeleteMonitor(display_, root_, monitor->name);
    }
    XRRFreeMonitors(monitor);
  }

  void sendEvent() {
    const std::string bytes = input_.ConsumeBytesAsString(31);
    XEvent event{};
    event.type = input_.ConsumeIntegralInRange(2, 127);
    auto* const wire = reinterpret_cast<char*>(&event) + 8;
    memcpy(wire + 1, bytes.data(), bytes.size());
    wire[0] = static_cast<char>(event.type);
    XSendEvent(display_, hiddenWindow(), False, NoEventMask, &event);
  }

  void sendMessage() {
    const std::string name = input_.PickValueInArray(kMessages);
    std::string body = input_.ConsumeRandomLengthString(2000);
    // A negative length ends the agent.
    if (name == "clientCutText" && !body.empty()) body[0] = static_cast<char>(body[0] & 0x7F);
    const size_t length = 1 + name.size() + body.size();
    std::string bytes{static_cast<char>(0x80 | length >> 8), static_cast<char>(length),
                      static_cast<char>(name.size())};
    bytes += name + body;
    send(channel_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
  }

  FuzzedDataProvider& input_;
  int channel_;
  Display* display_;
  Window root_;
  Window window_;
  size_t steps_ = 0;
};

// Turns the loop a few times for each step of the neighbour's.
class Turns : public ui::AppLoopImpl {
 public:
  explicit Turns(Neighbour& other) : other_(other) {}

 protected:
  NextWait beforeWait() override {
    constexpr int kTurnsAStep = 4;
    if (++turn_ % kTurnsAStep == 0 && !other_.step()) os::AppLoop::quit(0);
    other_.settle();
    ui::AppLoopImpl::beforeWait();
    return NextWait::kPoll;
  }

 private:
  Neighbour& other_;
  int turn_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  setenv("HOME", "/nonexistent", 1);
  xserver = support::XServer::xvfb("320x240x24");
  xserver->setDisplayVariable();
  neighbour = xserver->connect();
  for (int type = 2; type < 128; ++type) XESetEventToWire(neighbour.get(), type, copyRaw);
  atexit([] {
    neighbour.reset();
    xserver.reset();
  });
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) < 0) abort();
  const plat::FileDescriptor peer(ends[1]);
  FuzzedDataProvider input(data, size);
  Neighbour other(input, peer.get());
  io::LogDestIpc logDest;
  plat::LogManager::instance().setStartUpSpec("*:ipc:200");
  os::AppLoop loop(std::make_unique<Turns>(other));
  svr::AgentAppX11 app(false, logDest, std::make_unique<io::FdIo>(plat::FileDescriptor(ends[0])));
  agentsHandler = XSetErrorHandler([](Display* display, XErrorEvent* error) {
    return display == neighbour.get() ? 0 : agentsHandler(display, error);
  });
  if (loop.run() != 0) abort();
  return 0;
}
