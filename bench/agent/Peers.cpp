#include "Peers.h"

#include <chrono>
#include <cstdio>
#include <thread>
#include <vector>

#include "Report.h"
#include "Subject.h"
#include "Workloads.h"
#include "support/XServer.h"

namespace bench {

namespace {

constexpr int kRepetitions = 5;
constexpr const char* kScreen = "1920x1080x24";

struct Peer {
  std::string name;
  // Of the program for a display and a rate, and to see whether it is there.
  std::vector<std::string> (*command)(const std::string& display, int perSecond);
  std::vector<std::string> probe;
};

std::vector<std::string> gstreamer(const std::string& display, int perSecond, bool damage) {
  return {"gst-launch-1.0",
          "-q",
          "ximagesrc",
          "display-name=" + display,
          std::string("use-damage=") + (damage ? "true" : "false"),
          "!",
          "video/x-raw,framerate=" + std::to_string(perSecond) + "/1",
          "!",
          "fakesink"};
}

const std::vector<Peer>& peers() {
  static const std::vector<Peer> all = {
      // What the drawing itself costs: nobody captures.
      {"X alone",
       [](const std::string&, int) {
         return std::vector<std::string>{"sleep", "600"};
       },
       {"sleep", "0"}},
      {"ximagesrc",
       [](const std::string& display, int rate) { return gstreamer(display, rate, false); },
       {"gst-inspect-1.0", "ximagesrc"}},
      {"ximagesrc with damage",
       [](const std::string& display, int rate) { return gstreamer(display, rate, true); },
       {"gst-inspect-1.0", "ximagesrc"}},
      {"x11grab",
       [](const std::string& display, int rate) -> std::vector<std::string> {
         return {"ffmpeg",
                 "-loglevel",
                 "error",
                 "-nostdin",
                 "-f",
                 "x11grab",
                 "-framerate",
                 std::to_string(rate),
                 "-video_size",
                 "1920x1080",
                 "-i",
                 display,
                 "-c:v",
                 "copy",
                 "-f",
                 "null",
                 "-"};
       },
       {"ffmpeg", "-version"}},
  };
  return all;
}

bool isInstalled(const Peer& peer) {
  support::Program::Options options;
  options.captureErrors = true;
  if (support::Program(peer.probe, options).wait(support::Milliseconds(20000)) == 0) return true;
  std::fprintf(stderr, "!!! SKIPPED: %s, because it is not installed !!!\n", peer.name.c_str());
  return false;
}

void sleepSeconds(double seconds) {
  if (seconds > 0) std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

// One peer on a desktop of its own.
class Capture {
 public:
  Capture(const Peer& peer, int perSecond)
      : server_(support::XServer::xvfb(kScreen)),
        painter_(server_->display()),
        program_(server_->start(peer.command(server_->display(), perSecond))) {
    sleepSeconds(1.5);
    if (!program_->isRunning()) throw std::runtime_error(peer.name + " does not run");
  }

  Painter& painter() { return painter_; }
  // Milliseconds of processor time a second, of the program and its X server.
  double load(const Workload& workload, double seconds) {
    const auto used = [this] { return cpuSeconds(program_->pid()) + cpuSeconds(server_->pid()); };
    const double before = used();
    const Clock::time_point begin = Clock::now();
    for (int step = 0; workload.perSecond > 0 && step < workload.perSecond * seconds; ++step) {
      sleepSeconds(step / workload.perSecond - msSince(begin) / 1000);
      workload.step(step);
      XFlush(painter_.display());
    }
    sleepSeconds(seconds - msSince(begin) / 1000);
    return (used() - before) * 1e6 / msSince(begin);
  }

 private:
  std::unique_ptr<support::XServer> server_;
  Painter painter_;
  std::unique_ptr<support::Program> program_;
};

// The agent without DAMAGE beside a peer that has none either, at 20 frames a second.
void measurePolling(const std::string& agent, const Peer& peer) {
  const auto server = support::XServer::xvfb(kScreen);
  Subject subject(agent, server->display(), "", {{"CaptureMethod", "1"}, {"PollInterval", "50"}});
  Capture capture(peer, 20);
  const Workload nothing{"idle", 0, [](int) {}};
  std::vector<double> ours, theirs;
  for (int i = 0; i < kRepetitions; ++i) {
    const auto used = [&] { return cpuSeconds(subject.pid()) + cpuSeconds(server->pid()); };
    const double before = used();
    const Clock::time_point begin = Clock::now();
    subject.run(1);
    ours.push_back((used() - before) * 1e6 / msSince(begin));
    theirs.push_back(capture.load(nothing, 1));
  }
  printRow("polling every 50 ms: program + X", "ms/s", ours, theirs, peer.name, 0.5);
}

}  // namespace

void measurePeers(const std::string& agent) {
  for (const Peer& peer : peers()) {
    if (!isInstalled(peer)) continue;
    if (peer.name == "ximagesrc") measurePolling(agent, peer);
    Capture capture(peer, 30);
    for (const Workload& workload : capture.painter().workloads()) {
      printSeries("load", peer.name, workload.name, {capture.load(workload, 1)});
    }
  }
}

}  // namespace bench
