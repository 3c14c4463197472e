#pragma once

#include <gtest/gtest.h>

// Defines macros that GoogleTest's headers do not stand.
#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/AgentConnection.h"
#include "host/AgentProcess.h"
#include "host/Transcript.h"
#include "support/Segments.h"
#include "support/TempDir.h"
#include "support/XServer.h"

// What an agent tells its server.
class Recorder : public host::Transcript {
 public:
  // How many lines of this text (a part of it will do) have come, of any level or this one.
  int countLog(std::string_view text, int level = -1) const {
    return static_cast<int>(std::count_if(log.begin(), log.end(), [&](const host::LogLine& line) {
      return line.text.find(text) != std::string::npos &&
             (level < 0 || line.level == static_cast<uint32_t>(level));
    }));
  }
  bool hasLog(std::string_view text, int level = -1) const { return countLog(text, level) > 0; }
  std::string logText() const {
    std::string all;
    for (const host::LogLine& line : log) {
      all += std::to_string(line.level) + " " + line.source + ": " + line.text + "\n";
    }
    return all;
  }

  // What is told of the desktop's picture and the channel, in the order of arrival.
  std::vector<std::string> events;

 private:
  void noted(std::string_view message) override {
    static constexpr std::string_view kElsewhere =
        "logMsg badMsg setCursorPos localInput serverCutText desktopUidChanged "
        "displayModesSupported displayModesUpdated";
    if (kElsewhere.find(message) == std::string_view::npos) events.emplace_back(message);
  }
};

// The real program under test, with its server's end of the channel.
class Agent {
 public:
  using Parameters = std::vector<std::pair<std::string, std::string>>;

  explicit Agent(const std::string& display, const Parameters& parameters = {})
      : Agent(options(display, parameters)) {}
  explicit Agent(const host::LaunchOptions& options)
      : process_(host::AgentProcess::launch(options)) {
    connection = std::make_unique<host::AgentConnection>(process_.takeChannel(), &seen);
  }

  static host::LaunchOptions options(const std::string& display,
                                     const Parameters& parameters = {}) {
    host::LaunchOptions options;
    options.agent = RUVO_AGENT;
    options.display = display;
    options.parameters = parameters;
    // No one's configuration is read.
    options.environment = {{"HOME", "/nonexistent"}, {"LC_ALL", "C"}};
    return options;
  }

  pid_t pid() const { return process_.pid(); }
  bool waitFor(const std::function<bool()>& done, int timeoutMs = 10000) {
    return connection->processUntil(done, timeoutMs);
  }
  bool waitForLog(std::string_view text) {
    return waitFor([&] { return seen.hasLog(text); });
  }
  bool waitForMessage(std::string_view name) {
    return waitFor([&] { return seen.count(name) > 0; });
  }
  // Everything sent before now has had its effect and its answers: a message that is unknown is
  // answered in turn.
  void sync() {
    const std::string name = "sync" + std::to_string(syncs_++);
    connection->channel().writeMsg(name);
    connection->channel().endMsg();
    ASSERT_TRUE(waitFor([&] { return std::erase(seen.unknownNames, name) > 0; }));
  }
  // Starts the desktop and waits until it reports changes.
  void start() {
    connection->start();
    ASSERT_TRUE(waitFor([&] {
      return seen.hasLog("Using damage extension") || seen.hasLog("Using polling") ||
             !connection->isConnected();
    })) << seen.logText();
    sync();
    seen.events.clear();
  }
  // Asks for an update and waits for it.
  host::UpdateMessage update() {
    const size_t before = seen.updates.size();
    connection->fbUpdateRequest();
    EXPECT_TRUE(waitFor([&] { return seen.updates.size() > before; })) << seen.logText();
    return seen.updates.size() > before ? seen.updates.back() : host::UpdateMessage();
  }
  // Updates until the area has been reported as changed.
  bool updateUntilChanged(const rfb::Rect& area) {
    rfb::Region missing(area);
    for (int i = 0; i < 20 && !missing.isEmpty(); ++i) missing -= update().changed;
    return missing.isEmpty();
  }

  Recorder seen;
  std::unique_ptr<host::AgentConnection> connection;

 private:
  host::AgentProcess process_;
  int syncs_ = 0;
};

// A client that draws and looks at the screen.
class Painter {
 public:
  explicit Painter(const support::XServer& server)
      : display(server.connect()), root(DefaultRootWindow(display.get())) {}

  void fill(const rfb::Rect& r, unsigned long pixel) {
    const GC gc = DefaultGC(display.get(), 0);
    XSetForeground(display.get(), gc, pixel);
    XSetSubwindowMode(display.get(), gc, IncludeInferiors);
    XFillRectangle(display.get(), root, gc, r.tl.x, r.tl.y, static_cast<unsigned>(r.width()),
                   static_cast<unsigned>(r.height()));
    XSync(display.get(), False);
  }

  // Where the shared framebuffer differs from the screen inside the rectangle (the whole buffer by
  // default); empty when it does not.
  std::string difference(host::AgentConnection& connection, rfb::Rect r = rfb::Rect()) {
    return connection.pixels() ? difference(connection.pixelBuffer(), connection.pixels(), r)
                               : "no framebuffer: " + connection.segmentError();
  }
  std::string difference(const host::PixelBufferInfo& info, const uint8_t* pixels,
                         rfb::Rect r = rfb::Rect()) {
    if (r.isEmpty()) r = info.rect;
    const std::unique_ptr<XImage, int (*)(XImage*)> image(
        XGetImage(display.get(), root, r.tl.x, r.tl.y, static_cast<unsigned>(r.width()),
                  static_cast<unsigned>(r.height()), AllPlanes, ZPixmap),
        [](XImage* made) { return XDestroyImage(made); });
    const auto size = static_cast<size_t>(info.format.bytesPerPixel());
    const size_t rowBytes = static_cast<size_t>(r.width()) * size;
    for (int y = r.tl.y; y < r.br.y; ++y) {
      const uint8_t* ours = pixels + (static_cast<size_t>(y - info.rect.tl.y) * info.stride +
                                      static_cast<size_t>(r.tl.x - info.rect.tl.x)) *
                                         size;
      if (memcmp(ours, image->data + (y - r.tl.y) * image->bytes_per_line, rowBytes) != 0) {
        return plat::format("row %d", y);
      }
    }
    return "";
  }

  const support::XConnection display;
  const Window root;
};
