// How long a key takes from the server's message to a client of the desktop, beside the floor, a
// bare XTEST request and xdotool, in turns on one private X server.
//
//   bench-keys [--agent PATH] [--floor PATH] [SAMPLES]

#include <X11/extensions/XTest.h>
#include <X11/keysym.h>
#include <poll.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "agent/Program.h"
#include "agent/Report.h"
#include "agent/Subject.h"
#include "support/XServer.h"

namespace bench {
namespace {

constexpr int kBurst = 1000;

// A client with the focus.
class Receiver {
 public:
  explicit Receiver(const support::XServer& server) : display_(server.connect()) {
    Display* const d = display_.get();
    XSetWindowAttributes attributes{};
    attributes.override_redirect = True;
    attributes.event_mask = KeyPressMask | KeyReleaseMask | ExposureMask;
    const Window window =
        XCreateWindow(d, DefaultRootWindow(d), 0, 0, 100, 100, 0, CopyFromParent, InputOutput,
                      nullptr, CWOverrideRedirect | CWEventMask, &attributes);
    XMapRaised(d, window);
    XEvent event;
    XWindowEvent(d, window, ExposureMask, &event);
    XSetInputFocus(d, window, RevertToPointerRoot, CurrentTime);
    XSync(d, True);
  }

  // Calls idle() every millisecond without an event. Throws std::runtime_error when they do not
  // come.
  template <typename Idle>
  void waitForReleases(int number, Idle idle) {
    int waited = 0;
    for (int seen = 0; seen < number;) {
      if (XPending(display_.get()) == 0) {
        pollfd poller{ConnectionNumber(display_.get()), POLLIN, 0};
        if (poll(&poller, 1, 1) > 0) continue;
        if (++waited > 10000) throw std::runtime_error("a key does not arrive");
        idle();
        continue;
      }
      XEvent event;
      XNextEvent(display_.get(), &event);
      if (event.type == KeyRelease) seen++;
    }
  }

 private:
  support::XConnection display_;
};

void measure(const std::string& agent, const std::string& floor, int samples) {
  const auto server = support::XServer::xvfb("1920x1080x24");
  Receiver receiver(*server);
  Subject subject(agent, server->display(), {});
  Subject relay(floor, server->display(), {});
  const support::XConnection bare = server->connect();
  const unsigned keycode = XKeysymToKeycode(bare.get(), XK_a);

  const auto through = [&](Subject& program, int number) {
    for (int i = 0; i < number; ++i) {
      program.connection().keyEvent(XK_a, true);
      program.connection().keyEvent(XK_a, false);
    }
    program.connection().process(0);
  };
  const auto throughAgent = [&](int number) { through(subject, number); };
  const auto throughFloor = [&](int number) { through(relay, number); };
  const auto throughXTest = [&](int number) {
    for (int i = 0; i < number; ++i) {
      XTestFakeKeyEvent(bare.get(), keycode, True, CurrentTime);
      XTestFakeKeyEvent(bare.get(), keycode, False, CurrentTime);
    }
    XFlush(bare.get());
  };
  const auto timed = [&](int number, const auto& send) {
    const Clock::time_point begin = Clock::now();
    send(number);
    // A burst does not fit into the channel at once.
    receiver.waitForReleases(number, [&] { subject.connection().process(0); });
    return msSince(begin);
  };

  // The first key of all finds the keyboard in its ordinary state.
  timed(1, throughAgent);
  std::vector<double> ours, theirs, xtest, xdotool;
  for (int i = 0; i < samples; ++i) {
    subject.run(0.01);
    xtest.push_back(timed(1, throughXTest));
    subject.run(0.01);
    ours.push_back(timed(1, throughAgent));
    subject.run(0.01);
    theirs.push_back(timed(1, throughFloor));
    if (i % 10 == 0) {
      const Clock::time_point begin = Clock::now();
      const auto tool = server->start({"xdotool", "key", "a"});
      receiver.waitForReleases(1, [] {});
      xdotool.push_back(msSince(begin));
      tool->wait();
    }
  }
  printRow("key to KeyPress", "ms", {median(ours)}, {median(theirs)}, "floor", 1);
  printRow("key to KeyPress", "ms", {median(ours)}, {median(xtest)}, "bare XTEST", 1.3);
  printRow("key to KeyPress, p95", "ms", {percentile(ours, 0.95)}, {percentile(xtest, 0.95)},
           "bare XTEST", 1.3);
  printRow("key to KeyPress", "ms", {median(ours)}, {median(xdotool)}, "xdotool", 1);
  printSeries("latency", "agent", "key", ours);
  printSeries("latency", "bare XTEST", "key", xtest);

  std::vector<double> ourBursts, bareBursts;
  for (int i = 0; i < 5; ++i) {
    bareBursts.push_back(timed(kBurst, throughXTest) * 1000 / kBurst);
    ourBursts.push_back(timed(kBurst, throughAgent) * 1000 / kBurst);
  }
  printRow("1000 keys at once", "us a key", ourBursts, bareBursts, "bare XTEST", 1.3);
  // 60,000 a second.
  printRow("1000 keys at once", "us a key", median(ourBursts), 16.7);
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
  std::string agent = bench::ownDirectory() + "ruvoagent", floor = bench::ownDirectory() + "floor";
  int samples = 300;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--agent" && i + 1 < argc) {
      agent = argv[++i];
    } else if (argument == "--floor" && i + 1 < argc) {
      floor = argv[++i];
    } else if ((samples = std::atoi(argv[i])) < 1) {
      std::fprintf(stderr, "usage: bench-keys [--agent PATH] [--floor PATH] [SAMPLES]\n");
      return 2;
    }
  }
  return bench::runMain("bench-keys", [&] { bench::measure(agent, floor, samples); });
}
