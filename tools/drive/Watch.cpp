#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <optional>
#include <utility>
#include <vector>

#include "JsonOutput.h"
#include "Terminal.h"
#include "View.h"
#include "XClient.h"
#include "plat/Exception.h"

namespace drive {

namespace {

using Clock = std::chrono::steady_clock;

// What is drawn into, how often at most, and when it is drawn again if no update tells of it
// (seconds).
const rfb::Rect kDrawn(0, 0, 8, 8);
constexpr double kDrawPeriod = 0.06;
constexpr double kDrawnInVain = 0.5;

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
  std::vector<double> drawsMs;  // from drawing to update
};

double percentile(std::vector<double>& values, double part) {
  if (values.empty()) return 0;
  const auto place =
      values.begin() + static_cast<std::ptrdiff_t>(part * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), place, values.end());
  return *place;
}

Json percentilesJson(std::vector<double>& values) {
  return {{"p50", percentile(values, 0.5)},
          {"p90", percentile(values, 0.9)},
          {"p99", percentile(values, 0.99)}};
}

std::string percentilesText(std::vector<double>& values) {
  return plat::format("%.1f ms (90 %%: %.1f, 99 %%: %.1f)", percentile(values, 0.5),
                      percentile(values, 0.9), percentile(values, 0.99));
}

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

class Watcher : public host::Transcript {
 public:
  explicit Watcher(const WatchOptions& options)
      : Transcript(Keep::kLast), options_(options), screen_(isatty(STDOUT_FILENO) == 1) {}

  void setAgent(host::AgentConnection& agent) { agent_ = &agent; }

  void request() {
    agent_->fbUpdateRequest();
    requested_ = Clock::now();
  }

  // Draws, unless what was drawn before may still be seen: what comes before the agent begins to
  // watch the screen is in its first picture.
  void draw(XClient& client) {
    if (drawing_ && secondsSince(drawn_) < kDrawnInVain) return;
    drawing_ = true;
    white_ = !white_;
    drawn_ = Clock::now();
    client.paint(white_);
  }

  void summarise() {
    const double seconds = secondsSince(interval_.begin);
    const rfb::Rect& rect = agent_->pixelBuffer().rect;
    const double pixels = double(rect.width()) * double(rect.height());
    const double count = std::max(1u, interval_.updates);
    if (options_.json) {
      Json line = {{"seconds", seconds},
                   {"updates", interval_.updates},
                   {"rectangles", interval_.rects},
                   {"changedPixels", interval_.area},
                   {"requestToUpdateMs", percentilesJson(interval_.waitsMs)},
                   {"cursorImages", interval_.cursors},
                   {"cursorPositions", interval_.positions}};
      if (options_.draw) line["drawToUpdateMs"] = percentilesJson(interval_.drawsMs);
      printJsonLine(line);
    } else {
      std::vector<std::pair<std::string, std::string>> rows{
          {"updates", plat::format("%.1f/s", interval_.updates / seconds)},
          {"rectangles", plat::format("%.1f/update", interval_.rects / count)},
          {"changed area",
           plat::format("%.2f Mpixel/s (%.1f %% of the screen an update)",
                        double(interval_.area) / seconds / 1e6,
                        pixels > 0 ? 100.0 * double(interval_.area) / count / pixels : 0.0)},
          {"request to update", percentilesText(interval_.waitsMs)},
          {"cursor images", plat::format("%u", interval_.cursors)},
          {"cursor positions", plat::format("%u", interval_.positions)},
      };
      if (options_.draw) rows.emplace_back("draw to update", percentilesText(interval_.drawsMs));
      screen_.table(rows);
    }
    interval_ = Interval{};
  }

 private:
  void noted(std::string_view message) override {
    if (message == "fbUpdate") {
      const rfb::Region& changed = updates.back().changed;
      ++interval_.updates;
      interval_.rects += static_cast<unsigned>(changed.numRects());
      interval_.area += areaOf(changed);
      interval_.waitsMs.push_back(secondsSince(requested_) * 1000);
      if (drawing_ && !(changed & kDrawn).isEmpty()) {
        drawing_ = false;
        interval_.drawsMs.push_back(secondsSince(drawn_) * 1000);
      }
      request();
    } else if (message == "setCursorImage") {
      ++interval_.cursors;
    } else if (message == "setCursorPos") {
      ++interval_.positions;
    } else if (const std::string text = factOf(message); !text.empty()) {
      fact(text);
    }
  }

  // What there is to say of a message; empty for what is not shown.
  std::string factOf(std::string_view message) const {
    if (message == "logMsg") {
      const host::LogLine& line = log.back();
      if (options_.noLog || static_cast<int64_t>(line.level) > options_.logLevel) return {};
      return plat::format("log %u %s: %s", line.level, line.source.c_str(), line.text.c_str());
    }
    if (options_.quiet) return {};
    if (message == "init") return plat::format("greeting 0x%08X", magic);
    if (message == "initRectAndPf") {
      return "desktop " + rectText(initialRect) + ", " + initialFormat.str();
    }
    if (message == "setPixelBuffer") {
      const host::PixelBufferInfo& info = buffers.back();
      return "buffer " + rectText(info.rect) + plat::format(", stride %u, ", info.stride) +
             info.format.str() + ", " + segmentText(info.segment) +
             (info.segmentChanged ? " (new)" : "");
    }
    if (message == "setColourMapEntries") {
      return plat::format("colour map: %zu colours from %d", colours.back().entries.size(),
                          colours.back().first);
    }
    if (message == "bell") return "bell";
    if (message == "serverCutText") {
      return plat::format("clipboard: %zu bytes", cutTexts.back().size());
    }
    if (message == "desktopFailure") return "desktop failure: " + failure;
    if (message == "captureBroken") {
      return isCaptureBroken ? "damage is incomplete: polling" : "damage can be trusted";
    }
    if (message == "desktopUidChanged") {
      return plat::format("desktop user %llu",
                          static_cast<unsigned long long>(owners.back().userId));
    }
    if (message == "displayModesSupported") {
      return areModesSupported ? "display sizes can be set" : "display sizes can't be set";
    }
    if (message == "displayModesUpdated") return "display modes changed";
    if (message == "monitorsUpdated") return monitorsText();
    return {};
  }

  std::string monitorsText() const {
    const host::MonitorsMessage& message = monitors.back();
    std::string text = plat::format("monitors %zu:", message.monitors.size());
    const char* separator = " ";
    for (const plat::DisplayInfo& monitor : message.monitors) {
      text += separator + monitor.name.str() + (monitor.primary ? " (primary) " : " ") +
              rectText({monitor.left, monitor.top, monitor.right, monitor.bottom});
      separator = ", ";
    }
    if (!message.selection.empty()) text += "; capturing " + message.selection;
    return text;
  }

  void fact(const std::string& text) {
    if (options_.json) {
      printJsonLine({{"fact", text}});
    } else {
      screen_.line(text);
    }
  }

  const WatchOptions& options_;
  Screen screen_;
  host::AgentConnection* agent_ = nullptr;
  Interval interval_;
  Clock::time_point requested_ = Clock::now();
  Clock::time_point drawn_;
  bool drawing_ = false;
  bool white_ = false;
};

}  // namespace

void watch(const SessionOptions& sessionOptions, const WatchOptions& options) {
  Watcher watcher(options);
  Session session(sessionOptions, watcher);
  watcher.setAgent(session.agent());
  session.startDesktop();
  std::optional<XClient> client;
  if (options.draw) {
    client.emplace(sessionOptions.display);
    client->showWindow(kDrawn);
  }
  watcher.request();

  const Clock::time_point begin = Clock::now();
  for (double next = 1;; next += 1) {
    const double limit = options.seconds > 0 ? std::min(next, options.seconds) : next;
    double left;
    while ((left = limit - secondsSince(begin)) > 0 && !interrupted() &&
           session.agent().isConnected()) {
      if (client) watcher.draw(*client);
      session.run(client ? std::min(left, kDrawPeriod) : left, [] { return false; });
    }
    if (interrupted() || !session.agent().isConnected()) break;
    if (secondsSince(begin) >= next) watcher.summarise();
    if (options.seconds > 0 && secondsSince(begin) >= options.seconds) break;
  }
  session.finish();
}

}  // namespace drive
