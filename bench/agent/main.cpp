// Figures of the whole agent beside the floor, each on a desktop of 1920x1080 of its own: latency
// from drawing to the server's update, processor time of the program and its X server under several
// workloads, calls an update, memory. Each line of output is one row of the table, as JSON.
//
//   bench-agent [--calls] [--agent PATH] [--floor PATH]
//   bench-agent --latency --display NAME [--agent PATH]
//
// --calls counts those alone, over video, for a short while; --latency is for people, on a desktop
// that is there.

#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <memory>
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

constexpr int kRepetitions = 5;

// One of the two that are compared, with a desktop that nobody else uses.
struct Side {
  Side(const std::string& program, const std::string& countLibrary)
      : server(support::XServer::xvfb("1920x1080x24")),
        painter(server->display()),
        subject(program, server->display(), countLibrary) {}

  std::unique_ptr<support::XServer> server;
  Painter painter;
  Subject subject;
};

void printRow(const std::string& name, const char* unit, std::vector<double> ours,
              std::vector<double> yardstick, double goal) {
  std::vector<double> ratios;
  for (size_t i = 0; i < ours.size(); ++i) ratios.push_back(ours[i] / yardstick[i]);
  const double spread = percentile(ratios, 1) - percentile(ratios, 0);
  std::printf(
      "{\"row\": \"%s\", \"unit\": \"%s\", \"ours\": %.4g, \"yardstick\": %.4g, "
      "\"against\": \"floor\", \"ratio\": %.3f, \"noise\": %.3f, \"goal\": %g}\n",
      name.c_str(), unit, median(ours), median(yardstick), median(ratios), spread / 2, goal);
  std::fflush(stdout);
}

void run(Side& side, const Workload& workload, double seconds) {
  const Clock::time_point begin = Clock::now();
  for (int step = 0;; ++step) {
    const double due = workload.perSecond > 0 ? step / workload.perSecond : seconds;
    side.subject.run(std::max(std::min(due, seconds) - msSince(begin) / 1000, 0.0));
    if (due >= seconds) return;
    workload.step(step);
    XFlush(side.painter.display());
  }
}

// Processor time of the program and its X server, in milliseconds a second.
double load(Side& side, size_t workload, double seconds) {
  const std::vector<Workload> list = side.painter.workloads();
  side.subject.settle();
  // Until it is still, where there is something to be still.
  if (list[workload].perSecond <= 0) side.subject.run(2.5);
  const auto used = [&] { return cpuSeconds(side.subject.pid()) + cpuSeconds(side.server->pid()); };
  const double before = used();
  const Clock::time_point begin = Clock::now();
  run(side, list[workload], seconds);
  return (used() - before) * 1e6 / msSince(begin);
}

// Milliseconds from drawing to the update.
std::vector<double> latencies(Painter& painter, Subject& subject, int samples) {
  std::mt19937 random(1);
  std::uniform_int_distribution<int> pauseMs(30, 60), place(0, 600);
  std::vector<double> result;
  for (int i = 0; i < samples; ++i) {
    subject.run(pauseMs(random) / 1000.0);
    const Clock::time_point begin = Clock::now();
    painter.dab(place(random), place(random), 8, 16);
    if (!subject.waitForUpdate(2000)) throw std::runtime_error("no update came");
    result.push_back(msSince(begin));
  }
  return result;
}

void latency(const std::string& agent, const std::string& display) {
  Painter painter(display);
  Subject subject(agent, display, "");
  const std::vector<double> all = latencies(painter, subject, 60);
  std::printf(
      "draw to fbUpdate      median %.2f ms, 95 %% %.2f ms, 99 %% %.2f ms (of it the batch delay "
      "of 1 "
      "ms)\n",
      median(all), percentile(all, 0.95), percentile(all, 0.99));
}

struct Calls {
  double roundTrips, selects, all;
};

Calls countCalls(Side& side, double seconds) {
  const CallCounts& counts = *side.subject.counts();
  const Workload video = side.painter.workloads()[4];
  // The pointer comes to rest.
  run(side, video, 2.5);
  const int updates = side.subject.count("fbUpdate");
  const uint64_t trips = counts.roundTrips, selects = counts.selects, all = counts.calls;
  run(side, video, seconds);
  const double per = std::max(side.subject.count("fbUpdate") - updates, 1);
  return {double(counts.roundTrips - trips) / per, double(counts.selects - selects) / per,
          double(counts.calls - all) / per};
}

void calls(const std::string& agent, const std::string& floor) {
  const std::string library = ownDirectory() + "libcountcalls.so";
  Side ours(agent, library), theirs(floor, library);
  const Calls a = countCalls(ours, 3), b = countCalls(theirs, 3);
  printRow("video: X round trips an update", "", {a.roundTrips}, {b.roundTrips}, 1);
  printRow("video: select calls an update", "", {a.selects}, {b.selects}, 2);
  printRow("video: system calls an update", "", {a.all}, {b.all}, 15);
}

void times(const std::string& agent, const std::string& floor) {
  Side ours(agent, ""), theirs(floor, "");
  const std::vector<double> goals{0.1, 0.6, 0.8, 0.9, 0.9, 0.9};
  const std::vector<Workload> list = ours.painter.workloads();
  for (size_t i = 0; i < list.size(); ++i) {
    const double seconds = list[i].perSecond < 10 ? 2 : 1.5;
    std::vector<double> a, b;
    for (int repetition = 0; repetition < kRepetitions; ++repetition) {
      a.push_back(load(ours, i, seconds));
      b.push_back(load(theirs, i, seconds));
    }
    printRow(list[i].name + ": program + X", "ms/s", a, b, goals[i]);
  }
  std::vector<double> middle[2], late[2];
  for (int repetition = 0; repetition < kRepetitions; ++repetition) {
    for (Side* side : {&ours, &theirs}) {
      const std::vector<double> all = latencies(side->painter, side->subject, 60);
      middle[side == &theirs].push_back(median(all));
      late[side == &theirs].push_back(percentile(all, 0.99));
    }
  }
  printRow("draw to fbUpdate, p50", "ms", middle[0], middle[1], 1);
  printRow("draw to fbUpdate, p99", "ms", late[0], late[1], 1);
  const host::PixelBufferInfo& info = ours.subject.connection().pixelBuffer();
  const double frame = double(info.stride) * info.rect.height() * info.format.bytesPerPixel();
  const auto beyond = [frame](Side& side) {
    return (double(resident(side.subject.pid()).all) - frame) / 1e6;
  };
  printRow("memory beyond the frame", "MB", {beyond(ours)}, {beyond(theirs)}, 5);
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
  std::string agent = bench::ownDirectory() + "ruvoagent", floor = bench::ownDirectory() + "floor";
  std::string display;
  bool callsOnly = false, latencyOnly = false;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--calls") {
      callsOnly = true;
    } else if (argument == "--latency") {
      latencyOnly = true;
    } else if (argument == "--display" && i + 1 < argc) {
      display = argv[++i];
    } else if (argument == "--agent" && i + 1 < argc) {
      agent = argv[++i];
    } else if (argument == "--floor" && i + 1 < argc) {
      floor = argv[++i];
    } else {
      std::fprintf(stderr,
                   "usage: bench-agent [--calls | --latency --display NAME] [--agent PATH] "
                   "[--floor PATH]\n");
      return 2;
    }
  }
  try {
    if (latencyOnly) {
      bench::latency(agent, display);
    } else {
      bench::calls(agent, floor);
      if (!callsOnly) bench::times(agent, floor);
    }
  } catch (const plat::Exception& e) {
    std::fprintf(stderr, "bench-agent: %s\n", e.text());
    return 1;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "bench-agent: %s\n", e.what());
    return 1;
  }
}
