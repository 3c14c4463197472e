// How long it takes from a request for another size until the server has the first update of the
// desktop in that size, and what part of it the X server takes.
//
//   bench-resize [--agent PATH]

#include <cstdio>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "agent/FirstCopy.h"
#include "agent/Program.h"
#include "agent/Report.h"
#include "agent/Subject.h"
#include "host/AgentConnection.h"
#include "host/AgentProcess.h"
#include "host/Transcript.h"
#include "plat/log/LogManager.h"
#include "support/XServer.h"
#include "tx/RandrExtension.h"
#include "tx/TXDisplay.h"

namespace bench {
namespace {

constexpr int kRounds = 15;
constexpr int kTimeoutMs = 10000;

struct Size {
  int width, height;
};

// Times of one kind of request, after one that does not count. Between two of them the desktop
// rests, so that no update has to keep its distance from the one before.
std::vector<double> measure(const std::function<void(int)>& request,
                            const std::function<void()>& rest) {
  std::vector<double> times;
  request(0);
  for (int i = 1; i <= kRounds; ++i) {
    rest();
    const Clock::time_point begin = Clock::now();
    request(i);
    times.push_back(msSince(begin));
  }
  return times;
}

// The agent's server. It asks for updates all the time.
class Server : public host::Transcript {
 public:
  explicit Server(const host::LaunchOptions& options)
      : Transcript(Keep::kLast),
        process_(host::AgentProcess::launch(options)),
        connection_(process_.takeChannel(), this) {
    connection_.start();
    waitFor([this] { return connection_.pixels() != nullptr; });
    connection_.fbUpdateRequest();
  }

  void rest() {
    connection_.processUntil([] { return false; }, 100);
  }
  // Returns when an update at the new size has arrived. The time until its buffer is added to
  // bufferMs.
  void resize(const Size& size) {
    width_ = size.width;
    height_ = size.height;
    updated_ = false;
    begin_ = Clock::now();
    connection_.setDisplayMode(static_cast<uint32_t>(width_), static_cast<uint32_t>(height_));
    waitFor([this] { return updated_; });
  }

  std::vector<double> bufferMs;

 private:
  void noted(std::string_view message) override {
    if (message == "setPixelBuffer") {
      const rfb::Rect& rect = buffers.back().rect;
      hasSize_ = rect.width() == width_ && rect.height() == height_;
      if (hasSize_) bufferMs.push_back(msSince(begin_));
    } else if (message == "fbUpdate") {
      if (hasSize_ && !updates.back().changed.isEmpty()) updated_ = true;
      connection_.fbUpdateRequest();
    }
  }
  void waitFor(const std::function<bool()>& done) {
    if (!connection_.processUntil(done, kTimeoutMs)) throw std::runtime_error("no answer");
  }

  host::AgentProcess process_;
  host::AgentConnection connection_;
  int width_ = 0, height_ = 0;
  bool hasSize_ = false;
  bool updated_ = false;
  Clock::time_point begin_;
};

// The requests that a change of size consists of, for a screen with one CRTC in use.
class BareClient {
 public:
  explicit BareClient(const std::string& display)
      : display_(display.c_str()), randr_(tx::RandrExtension::get()) {
    if (!randr_) throw std::runtime_error("no RANDR");
    resources_ = randr_->resources(tx::TXDisplay::display(), tx::TXDisplay::root());
    for (int i = 0; i < resources_->ncrtc && output_ == None; ++i) {
      crtc_ = resources_->crtcs[i];
      const tx::XRRCrtc info(
          randr_->getCrtcInfo(tx::TXDisplay::display(), resources_.get(), crtc_));
      if (info->noutput > 0) output_ = info->outputs[0];
    }
  }

  void resize(const Size& size) {
    configure(None, nullptr, 0);
    randr_->setScreenSize(tx::TXDisplay::display(), tx::TXDisplay::root(), size.width, size.height,
                          size.width / 4, size.height / 4);
    configure(mode(size), &output_, 1);
  }

 private:
  RRMode mode(const Size& size) const {
    for (int i = 0; i < resources_->nmode; ++i) {
      const XRRModeInfo& mode = resources_->modes[i];
      if (static_cast<int>(mode.width) == size.width &&
          static_cast<int>(mode.height) == size.height) {
        return mode.id;
      }
    }
    throw std::runtime_error("the X server has no such mode");
  }
  void configure(RRMode mode, RROutput* outputs, int count) {
    if (randr_->setCrtcConfig(tx::TXDisplay::display(), resources_.get(), crtc_, CurrentTime, 0, 0,
                              mode, RR_Rotate_0, outputs, count) != RRSetConfigSuccess) {
      throw std::runtime_error("XRRSetCrtcConfig failed");
    }
  }

  const tx::TXDisplay display_;
  const tx::RandrExtension* const randr_;
  tx::XRRResources resources_;
  RRCrtc crtc_ = None;
  RROutput output_ = None;
};

void measureAll(const std::string& agent) {
  constexpr Size kKnown[] = {{1920, 1080}, {1280, 720}};
  const auto display = support::XServer::dummy({{1920, 1080, 0, 0}});
  std::vector<double> bare, withCopy;
  {
    BareClient client(display->display());
    bare = measure([&](int i) { client.resize(kKnown[i % 2 ? 0 : 1]); },
                   [&] { withCopy.push_back(msOfFirstCopy(tx::TXDisplay::display())); });
  }
  for (size_t i = 0; i < bare.size(); ++i) withCopy[i] += bare[i];
  host::LaunchOptions options;
  options.agent = agent;
  options.display = display->display();
  Server server(options);
  const auto report = [&](const std::string& kind, double goal,
                          const std::function<void(int)>& request) {
    server.bufferMs.clear();
    const std::vector<double> updates = measure(request, [&] { server.rest(); });
    // The first one does not count.
    server.bufferMs.erase(server.bufferMs.begin());
    const std::string begin = "resize to " + kind;
    printDifference(begin + ", until the buffer", "ms", server.bufferMs, bare, "bare switch", goal);
    printDifference(begin + ", until the buffer", "ms", server.bufferMs, withCopy,
                    "bare switch and a copy into new memory", goal);
    printDifference(begin + ", until its first update", "ms", updates, bare, "bare switch", 0);
  };
  report("a mode that exists", 3, [&](int i) { server.resize(kKnown[i % 2 ? 0 : 1]); });
  report("a mode that has to be made", 0, [&](int i) { server.resize({1600 + i, 900 + i}); });
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
  std::string agent = bench::ownDirectory() + "ruvoagent";
  if (argc == 3 && std::string(argv[1]) == "--agent") {
    agent = argv[2];
  } else if (argc != 1) {
    std::fputs("usage: bench-resize [--agent PATH]\n", stderr);
    return 2;
  }
  plat::LogManager::instance().setLogSpec("*:stderr:0");
  return bench::runMain("bench-resize", [&] { bench::measureAll(agent); });
}
