#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <deque>
#include <vector>

#include "Commands.h"
#include "View.h"
#include "plat/Exception.h"

namespace drive {

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point begin) {
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

std::string rectText(const rfb::Rect& rect) {
  return plat::format("%dx%d at %d,%d", rect.width(), rect.height(), rect.tl.x, rect.tl.y);
}

std::string segmentText(const plat::SharedMemDescriptor& segment) {
  return segment.kind == plat::SharedMemDescriptor::Kind::kSysV
             ? plat::format("System V segment %d, %u bytes", segment.id, segment.size)
             : plat::format("POSIX segment %s, %u bytes", segment.name.c_str(), segment.size);
}

uint64_t areaOf(const rfb::Region& region) {
  uint64_t area = 0;
  for (const rfb::Rect& rect : region.rects()) {
    area += static_cast<uint64_t>(rect.width()) * static_cast<uint64_t>(rect.height());
  }
  return area;
}

// What arrived in one interval.
struct Interval {
  Clock::time_point begin = Clock::now();
  unsigned updates = 0, rects = 0, cursors = 0, positions = 0;
  uint64_t area = 0;
  std::vector<double> waitsMs;  // from request to update

  double medianWaitMs() {
    if (waitsMs.empty()) return 0;
    const auto middle = waitsMs.begin() + static_cast<std::ptrdiff_t>(waitsMs.size() / 2);
    std::nth_element(waitsMs.begin(), middle, waitsMs.end());
    return *middle;
  }
};

// Prints facts as lines; on a terminal they scroll above a table that is drawn anew each second.
class Screen {
 public:
  explicit Screen(bool terminal) : terminal_(terminal) {}

  void line(const std::string& text) {
    eraseTable();
    std::printf("%s\n", text.c_str());
    drawTable();
  }

  void table(const std::vector<std::pair<std::string, std::string>>& rows) {
    if (!terminal_) {
      std::string text;
      for (const auto& [name, value] : rows) {
        text += (text.empty() ? "" : ", ") + name + " " + value;
      }
      std::printf("%s\n", text.c_str());
      std::fflush(stdout);
      return;
    }
    eraseTable();
    rows_ = rows;
    drawTable();
  }

 private:
  void eraseTable() {
    if (drawn_ > 0) std::printf("\033[%zuA\033[J", drawn_);
    drawn_ = 0;
  }
  void drawTable() {
    for (const auto& [name, value] : rows_) {
      std::printf("  \033[1m%-20s\033[0m %s\n", name.c_str(), value.c_str());
    }
    drawn_ = rows_.size();
    std::fflush(stdout);
  }

  const bool terminal_;
  std::vector<std::pair<std::string, std::string>> rows_;
  size_t drawn_ = 0;
};

class Watcher : public Recorder {
 public:
  explicit Watcher(const WatchOptions& options)
      : options_(options), screen_(isatty(STDOUT_FILENO) == 1) {}

  void setAgent(host::AgentConnection& agent) { agent_ = &agent; }

  void init(uint32_t magic) override {
    Recorder::init(magic);
    screen_.line(plat::format("greeting 0x%08X", magic));
  }
  void initRectAndPf(const rfb::Rect& rect, const rfb::PixelFormat& format) override {
    Recorder::initRectAndPf(rect, format);
    screen_.line("desktop " + rectText(rect) + ", " + format.str());
  }
  void setPixelBuffer(const host::PixelBufferInfo& info) override {
    Recorder::setPixelBuffer(info);
    screen_.line("buffer " + rectText(info.rect) + plat::format(", stride %u, ", info.stride) +
                 info.format.str() + ", " + segmentText(info.segment) +
                 (info.segmentChanged ? " (new)" : ""));
  }
  void setColourMapEntries(int first, const std::vector<host::ColourMapEntry>& entries) override {
    screen_.line(plat::format("colour map: %zu colours from %d", entries.size(), first));
  }
  void fbUpdate(const host::UpdateMessage& update) override {
    ++interval_.updates;
    interval_.rects += static_cast<unsigned>(update.changed.numRects());
    interval_.area += areaOf(update.changed);
    interval_.waitsMs.push_back(secondsSince(requested_) * 1000);
    request();
  }
  void setCursorImage(const host::CursorImage&) override { ++interval_.cursors; }
  void setCursorPos(int32_t, int32_t) override { ++interval_.positions; }
  void bell() override { screen_.line("bell"); }
  void serverCutText(const std::string& text) override {
    screen_.line(plat::format("clipboard: %zu bytes", text.size()));
  }
  void desktopFailure(const std::string& text, const std::string& kind) override {
    Recorder::desktopFailure(text, kind);
    screen_.line("desktop failure: " + failure());
  }
  void captureBroken(bool broken) override {
    screen_.line(broken ? "damage is incomplete: polling" : "damage can be trusted");
  }
  void desktopUidChanged(uint64_t userId, const std::string&) override {
    screen_.line(plat::format("desktop user %llu", static_cast<unsigned long long>(userId)));
  }
  void displayModesSupported(bool supported) override {
    screen_.line(supported ? "display sizes can be set" : "display sizes can't be set");
  }
  void displayModesUpdated() override { screen_.line("display modes changed"); }
  void monitorsUpdated(const host::MonitorsMessage& message) override {
    std::string text = plat::format("monitors %zu:", message.monitors.size());
    const char* separator = " ";
    for (const plat::DisplayInfo& monitor : message.monitors) {
      text += separator + monitor.name.str() + (monitor.primary ? " (primary) " : " ") +
              rectText({monitor.left, monitor.top, monitor.right, monitor.bottom});
      separator = ", ";
    }
    if (!message.selection.empty()) text += "; capturing " + message.selection;
    screen_.line(text);
  }
  void logMsg(const host::LogLine& line) override {
    Recorder::logMsg(line);
    if (!options_.noLog) {
      screen_.line(
          plat::format("log %u %s: %s", line.level, line.source.c_str(), line.text.c_str()));
    }
  }

  void request() {
    agent_->fbUpdateRequest();
    requested_ = Clock::now();
  }

  void summarise() {
    const double seconds = secondsSince(interval_.begin);
    const rfb::Rect& rect = agent_->pixelBuffer().rect;
    const double pixels = double(rect.width()) * double(rect.height());
    const double updates = std::max(1u, interval_.updates);
    screen_.table({
        {"updates", plat::format("%.1f/s", interval_.updates / seconds)},
        {"rectangles", plat::format("%.1f/update", interval_.rects / updates)},
        {"changed area",
         plat::format("%.2f Mpixel/s (%.1f %% of the screen an update)",
                      double(interval_.area) / seconds / 1e6,
                      pixels > 0 ? 100.0 * double(interval_.area) / updates / pixels : 0.0)},
        {"request to update", plat::format("%.1f ms", interval_.medianWaitMs())},
        {"cursor images", plat::format("%u", interval_.cursors)},
        {"cursor positions", plat::format("%u", interval_.positions)},
    });
    interval_ = Interval{};
  }

 private:
  const WatchOptions& options_;
  Screen screen_;
  host::AgentConnection* agent_ = nullptr;
  Interval interval_;
  Clock::time_point requested_ = Clock::now();
};

}  // namespace

void watch(const SessionOptions& sessionOptions, const WatchOptions& options) {
  Watcher watcher(options);
  Session session(sessionOptions, watcher);
  watcher.setAgent(session.agent());
  session.startDesktop();
  watcher.request();

  const Clock::time_point begin = Clock::now();
  double nextSummary = 1;
  const auto over = [&] {
    return interrupted() || (options.seconds > 0 && secondsSince(begin) >= options.seconds);
  };
  while (!over()) {
    session.loop().process(100);
    if (!session.agent().isConnected()) break;
    if (secondsSince(begin) >= nextSummary) {
      watcher.summarise();
      nextSummary += 1;
    }
  }
  session.finish();
}

}  // namespace drive
