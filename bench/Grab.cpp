// A grab of the screen into shared memory, beside the bare requests that it consists of.

#include <benchmark/benchmark.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <vector>

#include "plat/log/LogManager.h"
#include "support/XServer.h"
#include "tx/PixelBufferX11.h"
#include "tx/TXDisplay.h"

namespace {

using rfb::Rect;
using rfb::Region;

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;

Display* display() {
  return tx::TXDisplay::display();
}
Window root() {
  return tx::TXDisplay::root();
}

// Rectangles of 100 by 40, apart from one another; 0 stands for the whole screen.
Region region(int64_t rectangles) {
  if (rectangles == 0) return Region(Rect(0, 0, kWidth, kHeight));
  Region all;
  for (int i = 0; i < rectangles; ++i) {
    const int x = i % 5 * 380;
    const int y = i / 5 * 250;
    all |= Region(Rect(x, y, x + 100, y + 40));
  }
  return all;
}

// The shared pixmap by itself.
class Bare {
 public:
  Bare() : id_(shmget(IPC_PRIVATE, kWidth * kHeight * 4, IPC_CREAT | 0600)) {
    void* const memory = shmat(id_, nullptr, 0);
    attachment_.attach(id_, memory);
    shmctl(id_, IPC_RMID, nullptr);
    pixmap_.reset(XShmCreatePixmap(display(), root(), static_cast<char*>(memory),
                                   attachment_.info(), kWidth, kHeight, 24));
    XGCValues values{};
    values.subwindow_mode = IncludeInferiors;
    values.graphics_exposures = False;
    gc_.reset(XCreateGC(display(), pixmap_.get(), GCSubwindowMode | GCGraphicsExposures, &values));
    image_.reset(XShmCreateImage(display(), tx::TXDisplay::visual(), 24, ZPixmap,
                                 static_cast<char*>(memory), attachment_.info(), kWidth, kHeight));
  }

  void copy(const Region& what) {
    for (const Rect& r : what.rects()) {
      XCopyArea(display(), root(), pixmap_.get(), gc_.get(), r.tl.x, r.tl.y,
                static_cast<unsigned>(r.width()), static_cast<unsigned>(r.height()), r.tl.x,
                r.tl.y);
    }
    XSync(display(), False);
  }
  void getImage() { XShmGetImage(display(), root(), image_.get(), 0, 0, AllPlanes); }

 private:
  int id_;
  tx::XShmAttachment attachment_;
  tx::XPixmap pixmap_;
  tx::XGC gc_;
  tx::XImageOverMemory image_;
};

std::unique_ptr<tx::PixelBufferX11> buffer;
std::unique_ptr<Bare> bare;

template <typename Work>
double seconds(Work work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Grab and yardstick alternate, so that both meet the same machine; the medians are compared.
template <typename Yardstick>
void compare(benchmark::State& state, Yardstick yardstick) {
  const Region what = region(state.range(0));
  std::vector<double> grabs;
  std::vector<double> yards;
  for (auto _ : state) {
    yards.push_back(seconds([&] { yardstick(what); }));
    grabs.push_back(seconds([&] { buffer->grabRegion(what); }));
    state.SetIterationTime(grabs.back());
  }
  const auto median = [](std::vector<double>& times) {
    const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
    std::nth_element(times.begin(), middle, times.end());
    return *middle;
  };
  state.counters["grab_us"] = median(grabs) * 1e6;
  state.counters["yardstick_us"] = median(yards) * 1e6;
  state.counters["ratio"] = median(grabs) / median(yards);
}

void grabBesideCopyArea(benchmark::State& state) {
  compare(state, [](const Region& what) { bare->copy(what); });
}

void grabBesideGetImage(benchmark::State& state) {
  compare(state, [](const Region&) { bare->getImage(); });
}

BENCHMARK(grabBesideCopyArea)->ArgName("rects")->Arg(1)->Arg(5)->Arg(20)->Arg(0)->UseManualTime();
BENCHMARK(grabBesideGetImage)->ArgName("rects")->Arg(0)->UseManualTime();

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  plat::LogManager::instance().setLogSpec("*:stderr:0");
  const auto server = support::XServer::xvfb("1920x1080x24");
  const tx::TXDisplay connection(server->display().c_str());
  XSetWindowBackground(display(), root(), 0x336699);
  XClearWindow(display(), root());
  buffer = std::make_unique<tx::PixelBufferX11>(root(), nullptr);
  bare = std::make_unique<Bare>();
  if (buffer->mode() != tx::PixelBufferX11::Mode::kSharedPixmap) {
    fputs("no shared pixmap\n", stderr);
    return 1;
  }
  benchmark::RunSpecifiedBenchmarks();
  buffer.reset();
  bare.reset();
  return 0;
}
