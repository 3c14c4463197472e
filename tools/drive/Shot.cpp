#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "Picture.h"
#include "PictureFormat.h"
#include "Terminal.h"
#include "View.h"
#include "host/ProgramOutput.h"
#include "plat/Exception.h"

namespace drive {

namespace {

// The position is told when it changes, so the pointer makes a step to the right and back. At the
// right edge, where nothing comes of the first step, it makes one to the left and back.
rfb::Point findPointer(Session& session, host::Transcript& seen) {
  int before = 0;
  const auto step = [&](int32_t by) {
    before = seen.count("setCursorPos");
    session.agent().pointerEvent(by, 0, 0, true);
  };
  const auto positioned = [&] { return seen.count("setCursorPos") > before; };
  const auto wait = [&] { session.waitUntil(positioned, 3000, "the pointer's position"); };
  step(1);
  if (session.loop().processUntil(positioned, 1000)) {
    step(-1);
  } else {
    step(-1);
    wait();
    step(1);
  }
  // By then the image is that of this place, too.
  wait();
  return seen.cursorPositions.back();
}

// Where xwininfo says that a window is.
rfb::Rect windowRect(const SessionOptions& session, const std::string& window) {
  const bool isNumber = !window.empty() && window[0] >= '0' && window[0] <= '9';
  std::vector<std::string> arguments{"xwininfo", isNumber ? "-id" : "-name", window};
  if (!session.display.empty()) {
    arguments.insert(arguments.begin() + 1, {"-display", session.display});
  }
  const host::ProgramOutput result = host::runProgram(arguments);
  if (result.status == 127) throw Failure("--window needs the program xwininfo (x11-utils)");
  const auto number = [&](std::string_view name) {
    const size_t place = result.output.find(name);
    if (place == std::string::npos) throw Failure("there is no window '" + window + "'");
    return std::atoi(result.output.c_str() + place + name.size());
  };
  const int x = number("Absolute upper-left X:"), y = number("Absolute upper-left Y:");
  return {x, y, x + number("Width:"), y + number("Height:")};
}

// The file name of a picture: the pattern's %d is its number. Throws Failure.
std::string nameOf(const std::string& pattern, int number) {
  const size_t place = pattern.find('%');
  size_t end =
      place == std::string::npos ? place : pattern.find_first_not_of("0123456789", place + 1);
  if (end == std::string::npos || pattern[end] != 'd' || end - place > 4 ||
      pattern.find('%', end) != std::string::npos) {
    throw Failure("'" + pattern + "' has no %d for the pictures' numbers");
  }
  const int digits = std::atoi(pattern.substr(place + 1, end - place - 1).c_str());
  return pattern.substr(0, place) + plat::format("%0*d", digits, number) + pattern.substr(end + 1);
}

}  // namespace

bool parseRegion(const std::string& text, rfb::Rect& region) {
  int width = 0, height = 0, x = 0, y = 0, length = 0;
  if (std::sscanf(text.c_str(), "%5dx%5d%6d%6d%n", &width, &height, &x, &y, &length) != 4 ||
      length != static_cast<int>(text.size()) || width <= 0 || height <= 0) {
    return false;
  }
  region = {x, y, x + width, y + height};
  return true;
}

void shot(const SessionOptions& sessionOptions, const ShotOptions& options) {
  pictureFormatOf(options.file);
  if (options.every > 0 && options.file != "-") nameOf(options.file, 1);
  host::Transcript seen(host::Transcript::Keep::kLast);
  Session session(sessionOptions, seen);
  session.startDesktop();
  rfb::Point position;
  if (options.cursor) position = findPointer(session, seen);
  const auto take = [&](const std::string& file) {
    rfb::Rect area = session.agent().pixelBuffer().rect;
    if (!options.region.empty()) parseRegion(options.region, area);
    if (!options.window.empty()) area = windowRect(sessionOptions, options.window);
    Picture picture = Picture::ofFramebuffer(session.agent(), area);
    if (options.cursor && !seen.cursors.empty()) {
      if (!seen.cursorPositions.empty()) position = seen.cursorPositions.back();
      picture.drawCursor(seen.cursors.back(), position);
    }
    picture.write(file, false);
  };
  if (options.every <= 0) {
    take(options.file);
    session.finish();
    return;
  }
  using Clock = std::chrono::steady_clock;
  const Clock::time_point begin = Clock::now();
  for (int i = 1;; ++i) {
    take(options.file == "-" ? options.file : nameOf(options.file, i));
    if (i == options.count) break;
    // What changed meanwhile is captured on request.
    session.agent().fbUpdateRequest();
    const double left =
        i * options.every - std::chrono::duration<double>(Clock::now() - begin).count();
    int updates = seen.count("fbUpdate");
    session.run(std::max(left, 0.001), [&] {
      if (seen.count("fbUpdate") > updates) {
        updates = seen.count("fbUpdate");
        session.agent().fbUpdateRequest();
      }
      return false;
    });
    if (interrupted() || !session.agent().isConnected()) break;
  }
  session.finish();
}

void cursorShot(const SessionOptions& sessionOptions, const std::string& file) {
  if (pictureFormatOf(file) == PictureFormat::kJpeg) {
    throw Failure(file + ": JPEG knows no transparency, which a cursor has; .png and .webp do");
  }
  host::Transcript seen(host::Transcript::Keep::kLast);
  Session session(sessionOptions, seen);
  session.startDesktop();
  session.waitUntil([&] { return !seen.cursors.empty() && seen.cursors.back().visible; }, 5000,
                    "the cursor's image");
  Picture::ofCursor(seen.cursors.back()).write(file, true);
  session.finish();
}

}  // namespace drive
