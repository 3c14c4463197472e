// Figures of the whole agent beside the floor, each on a desktop of 1920x1080 of its own: latency
// from drawing to the server's update, processor time of the program and its X server under several
// workloads, calls an update, memory. Each line of output is one row of the table, as JSON.
//
//   bench-agent [--calls | --peers] [--agent PATH] [--floor PATH]
//   bench-agent --latency --display NAME [--agent PATH]
//
// --calls counts those alone, for a short while; --peers measures other programs that capture, as
// far as they are installed; --latency is for people, on a desktop that is there.

#include <algorithm>
#include <cstdio>
#include <memory>
#include <random>

#include "Peers.h"
#include "Program.h"
#include "Report.h"
#include "Subject.h"
#include "Workloads.h"
#include "support/XServer.h"

namespace bench {
namespace {

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
double load(Side& side, size_t workload, double seconds, bool first) {
  const std::vector<Workload> list = side.painter.workloads();
  // Until it is still, where there is something to be still.
  if (list[workload].perSecond > 0) {
    side.subject.settle();
  } else if (first) {
    side.subject.run(2.5);
  }
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

Calls countCalls(Side& side, const char* name, double seconds) {
  const CallCounts& counts = *side.subject.counts();
  const std::vector<Workload> list = side.painter.workloads();
  const Workload& workload =
      *std::find_if(list.begin(), list.end(), [&](const Workload& w) { return w.name == name; });
  // The pointer comes to rest.
  run(side, workload, 2.5);
  const int updates = side.subject.count("fbUpdate");
  const uint64_t trips = counts.roundTrips, selects = counts.selects, all = counts.calls;
  run(side, workload, seconds);
  const double per = std::max(side.subject.count("fbUpdate") - updates, 1);
  return {double(counts.roundTrips - trips) / per, double(counts.selects - selects) / per,
          double(counts.calls - all) / per};
}

void calls(const std::string& agent, const std::string& floor) {
  Side ours(agent, countLibraryFor(agent)), theirs(floor, countLibraryFor(floor));
  for (const char* name : {"video", "scrolling"}) {
    const Calls a = countCalls(ours, name, 3), b = countCalls(theirs, name, 3);
    const std::string prefix = std::string(name) + ": ";
    printRow(prefix + "X round trips an update", "", {a.roundTrips}, {b.roundTrips}, "floor", 1);
    printRow(prefix + "select calls an update", "", {a.selects}, {b.selects}, "floor", 2);
    printRow(prefix + "system calls an update", "", {a.all}, {b.all}, "floor", 15);
  }
}

void loads(Side& ours, Side& theirs) {
  const std::vector<double> goals{0.1, 0.6, 0.8, 0.9, 0.9, 0.9};
  const std::vector<Workload> list = ours.painter.workloads();
  for (size_t i = 0; i < list.size(); ++i) {
    const double seconds = list[i].perSecond < 10 ? 1.5 : 1;
    std::vector<double> a, b;
    for (int repetition = 0; repetition < kRepetitions; ++repetition) {
      a.push_back(load(ours, i, seconds, repetition == 0));
      b.push_back(load(theirs, i, seconds, repetition == 0));
    }
    printRow(list[i].name + ": program + X", "ms/s", a, b, "floor", goals[i]);
    printSeries("load", "agent", list[i].name, a);
    printSeries("load", "floor", list[i].name, b);
  }
}

void latencies(Side& ours, Side& theirs) {
  std::vector<double> middle[2], late[2], samples[2];
  for (int repetition = 0; repetition < kRepetitions; ++repetition) {
    for (Side* side : {&ours, &theirs}) {
      const int who = side == &theirs;
      const std::vector<double> all = latencies(side->painter, side->subject, 60);
      middle[who].push_back(median(all));
      late[who].push_back(percentile(all, 0.99));
      samples[who].insert(samples[who].end(), all.begin(), all.end());
    }
  }
  printRow("draw to fbUpdate, p50", "ms", middle[0], middle[1], "floor", 1);
  printRow("draw to fbUpdate, p99", "ms", late[0], late[1], "floor", 1);
  printSeries("latency", "agent", "idle screen", samples[0]);
  printSeries("latency", "floor", "idle screen", samples[1]);
}

// How late a small change is while a video plays: until the first update that shows it.
std::vector<double> latenciesOverVideo(Side& side, int samples) {
  const std::vector<Workload> list = side.painter.workloads();
  const Workload& video = list[4];
  std::mt19937 random(1);
  std::uniform_real_distribution<double> phase(0.2, 0.9);
  const double frame = 1 / video.perSecond;
  std::vector<double> result;
  for (int step = 0; step < samples; ++step) {
    video.step(step);
    XFlush(side.painter.display());
    const double before = phase(random) * frame;
    const Clock::time_point shown = Clock::now();
    side.subject.run(before);
    const Clock::time_point begin = Clock::now();
    side.painter.dab(100, 900, 8, 16);
    if (!side.subject.waitForUpdate(2000)) throw std::runtime_error("no update came");
    result.push_back(msSince(begin));
    side.subject.run(std::max(frame - msSince(shown) / 1000, 0.0));
  }
  return result;
}

void latenciesOverVideo(Side& ours, Side& theirs) {
  std::vector<double> a, b;
  for (int repetition = 0; repetition < kRepetitions; ++repetition) {
    a.push_back(median(latenciesOverVideo(ours, 40)));
    b.push_back(median(latenciesOverVideo(theirs, 40)));
  }
  printRow("draw to fbUpdate over a video, p50", "ms", a, b, "floor", 1);
}

void times(const std::string& agent, const std::string& floor) {
  Side ours(agent, ""), theirs(floor, "");
  loads(ours, theirs);
  latencies(ours, theirs);
  latenciesOverVideo(ours, theirs);
  const auto own = [](const Side& side) {
    return double(ownMemory(side.subject.pid(), false)) / 1e6;
  };
  printRow("memory beyond the frame", "MB", {own(ours)}, {own(theirs)}, "floor", 5);
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
  std::string agent = bench::ownDirectory() + "ruvoagent", floor = bench::ownDirectory() + "floor";
  std::string display;
  bool callsOnly = false, peersOnly = false, latencyOnly = false;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--calls") {
      callsOnly = true;
    } else if (argument == "--peers") {
      peersOnly = true;
    } else if (argument == "--latency") {
      latencyOnly = true;
    } else if (argument == "--display" && i + 1 < argc) {
      display = argv[++i];
    } else if (argument == "--agent" && i + 1 < argc) {
      agent = argv[++i];
    } else if (argument == "--floor" && i + 1 < argc) {
      floor = argv[++i];
    } else {
      std::fprintf(
          stderr,
          "usage: bench-agent [--calls | --peers | --latency --display NAME] [--agent PATH] "
          "[--floor PATH]\n");
      return 2;
    }
  }
  return bench::runMain("bench-agent", [&] {
    if (latencyOnly) {
      bench::latency(agent, display);
    } else if (peersOnly) {
      bench::measurePeers(agent);
    } else {
      bench::calls(agent, floor);
      if (!callsOnly) bench::times(agent, floor);
    }
  });
}
