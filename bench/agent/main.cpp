// Figures of the whole agent on a desktop of 1920x1080: latency from drawing to the server's
// update, processor time of the agent and of the X server under several workloads, calls an update,
// memory.
//
//   bench-agent [--latency] [--display NAME] [--agent PATH]
//
// Without a display it starts a private X server. --latency measures that alone, for a short while.

#include <X11/Xutil.h>
#include <X11/extensions/Xdamage.h>
#include <dlfcn.h>
#include <poll.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <random>

#include "Subject.h"
#include "Workloads.h"
#include "plat/Exception.h"
#include "support/XServer.h"

namespace bench {
namespace {

std::string ownDirectory() {
  char path[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
  const std::string own(path, length > 0 ? static_cast<size_t>(length) : 0);
  return own.substr(0, own.rfind('/') + 1);
}

// The yardstick: how long it takes from drawing until a bare client of DAMAGE has the report and
// has fetched the rectangle.
class DamageClient {
 public:
  explicit DamageClient(const std::string& name) : display_(XOpenDisplay(name.c_str())) {
    library_ = dlopen("libXdamage.so.1", RTLD_NOW);
    if (!display_ || !library_) return;
    const auto query =
        reinterpret_cast<Bool (*)(Display*, int*, int*)>(dlsym(library_, "XDamageQueryExtension"));
    const auto create =
        reinterpret_cast<Damage (*)(Display*, Drawable, int)>(dlsym(library_, "XDamageCreate"));
    subtract_ =
        reinterpret_cast<void (*)(Display*, Damage, XID, XID)>(dlsym(library_, "XDamageSubtract"));
    int error;
    if (!query(display_, &event_, &error)) return;
    damage_ = create(display_, DefaultRootWindow(display_), XDamageReportNonEmpty);
    XSync(display_, False);
  }
  ~DamageClient() {
    if (display_) XCloseDisplay(display_);
    if (library_) dlclose(library_);
  }
  DamageClient(const DamageClient&) = delete;
  DamageClient& operator=(const DamageClient&) = delete;

  bool usable() const { return damage_ != 0; }

  void fetchNext() {
    XEvent event;
    do {
      XNextEvent(display_, &event);
    } while (event.type != event_ + XDamageNotify);
    const auto& notify = reinterpret_cast<XDamageNotifyEvent&>(event);
    subtract_(display_, damage_, 0, 0);
    XImage* image = XGetImage(display_, DefaultRootWindow(display_), notify.area.x, notify.area.y,
                              notify.area.width, notify.area.height, AllPlanes, ZPixmap);
    if (image) XDestroyImage(image);
  }

 private:
  Display* display_;
  void* library_ = nullptr;
  int event_ = 0;
  Damage damage_ = 0;
  void (*subtract_)(Display*, Damage, XID, XID) = nullptr;
};

void latency(const std::string& display, const std::string& agent, int samples) {
  Painter painter(display);
  std::mt19937 random(1);
  std::uniform_int_distribution<int> pauseMs(30, 60);
  std::uniform_int_distribution<int> place(0, 600);

  std::vector<double> bare;
  {
    DamageClient client(display);
    for (int i = 0; client.usable() && i < samples; ++i) {
      usleep(static_cast<useconds_t>(pauseMs(random)) * 1000);
      const Clock::time_point begin = Clock::now();
      painter.dab(place(random), place(random), 8, 16);
      client.fetchNext();
      bare.push_back(msSince(begin));
    }
  }
  std::vector<double> whole;
  Subject subject(agent, display, {});
  for (int i = 0; i < samples; ++i) {
    subject.run(pauseMs(random) / 1000.0);
    const Clock::time_point begin = Clock::now();
    painter.dab(place(random), place(random), 8, 16);
    if (!subject.waitForUpdate(2000)) {
      std::printf("no update came\n");
      return;
    }
    whole.push_back(msSince(begin));
  }
  std::printf(
      "draw to fbUpdate      median %.2f ms, 95 %% %.2f ms (of it the batch delay of 1 ms)\n",
      median(whole), percentile(whole, 0.95));
  if (!bare.empty()) {
    std::printf(
        "draw to DAMAGE + get  median %.2f ms, 95 %% %.2f ms (a bare X client); ratio %.2f\n",
        median(bare), percentile(bare, 0.95), median(whole) / median(bare));
  }
}

struct Measured {
  double agentCpu, serverCpu, updates, megapixels, selects, roundTrips, zeroSelects;
};

// Runs the workload for some seconds, with or without an agent (null).
Measured measure(Painter& painter, const Workload& workload, Subject* subject, pid_t server,
                 double seconds) {
  const double agent0 = subject ? cpuSeconds(subject->pid()) : 0;
  const double server0 = cpuSeconds(server);
  const int updates0 = subject ? subject->count("fbUpdate") : 0;
  const uint64_t pixels0 = subject ? subject->pixels() : 0;
  const CallCounts* counts = subject ? subject->counts() : nullptr;
  const uint64_t selects0 = counts ? counts->selects.load() : 0;
  const uint64_t trips0 = counts ? counts->roundTrips.load() : 0;
  const uint64_t zero0 = counts ? counts->zeroSelects.load() : 0;

  const Clock::time_point begin = Clock::now();
  for (int step = 0;; ++step) {
    const double due = workload.perSecond > 0 ? step / workload.perSecond : seconds;
    const double left = due - msSince(begin) / 1000;
    if (left > 0) {
      if (subject) {
        subject->run(left);
      } else {
        usleep(static_cast<useconds_t>(left * 1e6));
      }
    }
    if (due >= seconds) break;
    workload.step(step);
    XFlush(painter.display());
  }
  const double elapsed = msSince(begin) / 1000;
  Measured result{};
  result.serverCpu = (cpuSeconds(server) - server0) / elapsed * 100;
  if (subject) {
    result.agentCpu = (cpuSeconds(subject->pid()) - agent0) / elapsed * 100;
    result.updates = double(subject->count("fbUpdate") - updates0);
    result.megapixels = double(subject->pixels() - pixels0) / 1e6 / elapsed;
  }
  if (counts) {
    result.selects = double(counts->selects - selects0);
    result.roundTrips = double(counts->roundTrips - trips0);
    result.zeroSelects = double(counts->zeroSelects - zero0);
  }
  return result;
}

void workloads(const std::string& display, const std::string& agent, pid_t server) {
  constexpr double kSeconds = 4;
  Painter painter(display);
  XSync(painter.display(), False);
  const std::vector<Workload> list = painter.workloads();
  std::vector<Measured> without;
  for (const Workload& workload : list) {
    without.push_back(measure(painter, workload, nullptr, server, kSeconds));
  }

  Subject subject(agent, display, ownDirectory() + "libcountcalls.so");
  std::printf("\n%-15s %9s %9s %9s %10s %9s %9s %9s %9s\n", "workload", "agent", "X server",
              "X alone", "updates/s", "Mpixel/s", "selects", "round", "zero");
  std::printf("%-15s %9s %9s %9s %10s %9s %9s %9s %9s\n", "", "% core", "% core", "% core", "", "",
              "/update", "trips/upd", "selects");
  for (size_t i = 0; i < list.size(); ++i) {
    subject.settle();
    const Measured m = measure(painter, list[i], &subject, server, kSeconds);
    const double per = m.updates > 0 ? m.updates : 1;
    std::printf("%-15s %9.2f %9.2f %9.2f %10.1f %9.2f %9.2f %9.2f %9.0f\n", list[i].name.c_str(),
                m.agentCpu, m.serverCpu, without[i].serverCpu, m.updates / kSeconds, m.megapixels,
                m.selects / per, m.roundTrips / per, m.zeroSelects);
  }
  const Resident memory = resident(subject.pid());
  const host::PixelBufferInfo& info = subject.connection().pixelBuffer();
  const double frame = double(info.stride) * info.rect.height() * info.format.bytesPerPixel();
  std::printf("\nresident memory %.1f MB, of it the shared frame %.1f MB; beyond it %.1f MB\n",
              double(memory.all) / 1e6, frame / 1e6, (double(memory.all) - frame) / 1e6);
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
  std::string display, agent = bench::ownDirectory() + "ruvoagent";
  bool latencyOnly = false;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--latency") {
      latencyOnly = true;
    } else if (argument == "--display" && i + 1 < argc) {
      display = argv[++i];
    } else if (argument == "--agent" && i + 1 < argc) {
      agent = argv[++i];
    } else {
      std::fprintf(stderr, "usage: bench-agent [--latency] [--display NAME] [--agent PATH]\n");
      return 2;
    }
  }
  try {
    std::unique_ptr<support::XServer> server;
    if (display.empty()) {
      server = support::XServer::xvfb("1920x1080x24");
      display = server->display();
    }
    bench::latency(display, agent, latencyOnly ? 60 : 200);
    if (!latencyOnly && server) bench::workloads(display, agent, server->pid());
  } catch (const plat::Exception& e) {
    std::fprintf(stderr, "bench-agent: %s\n", e.text());
    return 1;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "bench-agent: %s\n", e.what());
    return 1;
  }
}
