// Text from the server until an X client has pasted it, beside the same text from a program that
// does nothing but own a selection; and what a text takes that an X client has copied until the
// server has it.
//
//   bench-clipboard [--agent PATH]

#include <X11/Xatom.h>
#include <poll.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "agent/Program.h"
#include "agent/Report.h"
#include "agent/Subject.h"
#include "support/SelectionReply.h"
#include "support/XServer.h"

namespace bench {
namespace {

constexpr int kRounds = 60;
constexpr int kTimeoutMs = 10000;

Window makeWindow(Display* display) {
  return XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, 1, 1, 0, 0, 0);
}

// Answers as an owner must; returns whether it was asked for the text.
bool answer(Display* display, const XSelectionRequestEvent& request, const std::string& text) {
  const Atom utf8 = XInternAtom(display, "UTF8_STRING", False);
  const Atom targets = XInternAtom(display, "TARGETS", False);
  XEvent reply = support::selectionReply(request, request.property);
  if (request.target == utf8) {
    XChangeProperty(display, request.requestor, request.property, utf8, 8, PropModeReplace,
                    reinterpret_cast<const unsigned char*>(text.data()),
                    static_cast<int>(text.size()));
  } else if (request.target == targets) {
    XChangeProperty(display, request.requestor, request.property, XA_ATOM, 32, PropModeReplace,
                    reinterpret_cast<const unsigned char*>(&utf8), 1);
  } else {
    reply.xselection.property = None;
  }
  XSendEvent(display, request.requestor, False, 0, &reply);
  return request.target == utf8;
}

// The yardstick, as a program of its own: owns SECONDARY for ever.
int ownOnly(size_t size) {
  Display* const display = XOpenDisplay(nullptr);
  if (!display) return 1;
  const std::string text(size, 'x');
  XSetSelectionOwner(display, XInternAtom(display, "SECONDARY", False), makeWindow(display),
                     CurrentTime);
  for (;;) {
    XEvent event;
    XNextEvent(display, &event);
    if (event.type == SelectionRequest) answer(display, event.xselectionrequest, text);
  }
}

// A client that pastes.
class Requestor {
 public:
  explicit Requestor(const support::XServer& server)
      : display_(server.connect()), window_(makeWindow(display_.get())) {}

  Atom atom(const char* name) { return XInternAtom(display_.get(), name, False); }
  bool isOwned(Atom selection) { return XGetSelectionOwner(display_.get(), selection) != None; }

  // Milliseconds from the request until the text is here.
  double paste(Atom selection, size_t size) {
    Display* const display = display_.get();
    const Atom utf8 = atom("UTF8_STRING"), property = atom("PASTED");
    const Clock::time_point begin = Clock::now();
    XConvertSelection(display, selection, utf8, property, window_, CurrentTime);
    XEvent event;
    do {
      XNextEvent(display, &event);
    } while (event.type != SelectionNotify);
    Atom type = None;
    int format = 0;
    unsigned long count = 0, left = 0;
    unsigned char* bytes = nullptr;
    XGetWindowProperty(display, window_, property, 0, 1 << 20, True, AnyPropertyType, &type,
                       &format, &count, &left, &bytes);
    const double ms = msSince(begin);
    if (bytes) XFree(bytes);
    if (count != size) throw std::runtime_error("another text was pasted");
    return ms;
  }

 private:
  support::XConnection display_;
  Window window_;
};

void measurePastes(const std::string& agent) {
  struct Kind {
    const char* name;
    size_t size;
    double goal;
  };
  for (const Kind& kind :
       {Kind{"1 KB", 1024, 1.1}, Kind{"64 KB", 64 * 1024, 1.0}, Kind{"1 MB", 1000 * 1000, 1.0}}) {
    const auto server = support::XServer::xvfb("640x480x24");
    Subject subject(agent, server->display(), "", {{"EnableClipboard", "1"}});
    const auto owner =
        server->start({ownDirectory() + "bench-clipboard", "own", std::to_string(kind.size)});
    Requestor requestor(*server);
    subject.connection().clientCutText(std::string(kind.size, 'x'));
    const Atom clipboard = requestor.atom("CLIPBOARD"), secondary = requestor.atom("SECONDARY");
    const bool areOwned = support::waitFor([&] {
      subject.run(0.01);
      return requestor.isOwned(clipboard) && requestor.isOwned(secondary);
    });
    if (!areOwned) throw std::runtime_error("nobody owns the selection");
    std::vector<double> ours, theirs;
    const auto paste = [&](Atom selection) {
      // As people paste: both owners sleep. What the agent logs is read meanwhile.
      subject.run(0.02);
      (selection == clipboard ? ours : theirs).push_back(requestor.paste(selection, kind.size));
    };
    // The second of two large texts is faster: the X server has the memory for it already.
    for (int i = 0; i < kRounds; ++i) {
      paste(i % 2 ? clipboard : secondary);
      paste(i % 2 ? secondary : clipboard);
    }
    printRow(std::string("paste ") + kind.name, "ms", {median(ours)}, {median(theirs)},
             "bare selection owner", kind.goal);
  }
}

// Conversions and round trips of the agent for each text that an X client copies.
void countCopies(const std::string& agent) {
  const auto server = support::XServer::xvfb("640x480x24");
  Subject subject(agent, server->display(), countLibraryFor(agent), {{"EnableClipboard", "1"}});
  const support::XConnection connection = server->connect();
  Display* const display = connection.get();
  const Window window = makeWindow(display);
  const Atom clipboard = XInternAtom(display, "CLIPBOARD", False);
  int conversions = 0;
  const auto copy = [&](const std::string& text) {
    XSetSelectionOwner(display, clipboard, window, CurrentTime);
    const auto arrived = [&] {
      while (XPending(display) > 0) {
        XEvent event;
        XNextEvent(display, &event);
        if (event.type != SelectionRequest) continue;
        ++conversions;
        answer(display, event.xselectionrequest, text);
      }
      XFlush(display);
      subject.connection().process(1);
      return !subject.cutTexts.empty() && subject.cutTexts.back() == text;
    };
    if (!support::waitFor(arrived)) throw std::runtime_error("the server did not get the text");
  };
  // The first one may come before the agent has looked at what was there at its start.
  subject.run(3);
  copy(std::string(1024, 'a'));
  subject.run(2.5);
  conversions = 0;
  const uint64_t before = subject.counts()->roundTrips;
  constexpr int kCopies = 10;
  for (int i = 0; i < kCopies; ++i) copy(std::string(1023, 'b') + static_cast<char>('0' + i));
  printRow("copy 1 KB to \\\"serverCutText\\\": conversions", "", double(conversions) / kCopies, 2);
  // Each answer has to be fetched.
  printRow("copy 1 KB to \\\"serverCutText\\\": X round trips", "",
           double(subject.counts()->roundTrips - before) / kCopies, 2);
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
  if (argc == 3 && std::strcmp(argv[1], "own") == 0) {
    return bench::ownOnly(std::strtoul(argv[2], nullptr, 10));
  }
  std::string agent = bench::ownDirectory() + "ruvoagent";
  if (argc == 3 && std::strcmp(argv[1], "--agent") == 0) agent = argv[2];
  return bench::runMain("bench-clipboard", [&] {
    bench::measurePastes(agent);
    bench::countCopies(agent);
  });
}
