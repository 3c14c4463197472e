#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "Picture.h"
#include "Terminal.h"
#include "View.h"
#include "plat/Exception.h"

namespace drive {

namespace {

constexpr double kPeriod = 0.05;  // seconds between pictures at least

struct Colour {
  uint8_t red = 0, green = 0, blue = 0;
  bool operator==(const Colour&) const = default;
};

// Two pixels, one above the other.
struct Cell {
  Colour top, bottom;
  bool operator==(const Cell&) const = default;
};

struct Size {
  int columns = 80, rows = 24;
  bool operator==(const Size&) const = default;
};

Size terminalSize() {
  winsize size{};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0) {
    return {};
  }
  return {size.ws_col, size.ws_row};
}

// The mean of an area of a picture.
Colour meanOf(const Picture& picture, int x1, int y1, int x2, int y2) {
  unsigned red = 0, green = 0, blue = 0, count = 0;
  for (int y = y1; y < std::max(y2, y1 + 1); ++y) {
    const uint8_t* pixel = picture.rgba() + (size_t(y) * size_t(picture.width()) + size_t(x1)) * 4;
    for (int x = x1; x < std::max(x2, x1 + 1); ++x, pixel += 4) {
      red += pixel[0];
      green += pixel[1];
      blue += pixel[2];
      ++count;
    }
  }
  return {uint8_t(red / count), uint8_t(green / count), uint8_t(blue / count)};
}

// Pictures in a terminal, of half blocks in 24-bit colour.
class Canvas {
 public:
  Canvas() { put("\033[?1049h\033[?25l"); }
  ~Canvas() {
    put("\033[0m\033[?25h\033[?1049l");
    std::fflush(stdout);
  }
  Canvas(const Canvas&) = delete;
  Canvas& operator=(const Canvas&) = delete;

  // Draws what differs from the picture before.
  void draw(const Picture& picture) {
    const Size size = terminalSize();
    const double scale =
        std::min(double(size.columns) / picture.width(), 2.0 * size.rows / picture.height());
    const int columns = std::max(1, static_cast<int>(picture.width() * scale));
    const int rows = std::max(1, static_cast<int>(picture.height() * scale / 2));
    if (size != size_ || columns != columns_) {
      put("\033[0m\033[2J");
      cells_.clear();
    }
    size_ = size;
    columns_ = columns;
    cells_.resize(static_cast<size_t>(columns) * static_cast<size_t>(rows));
    const bool all = drawn_ != cells_.size();
    drawn_ = cells_.size();
    const auto x = [&](int column) { return column * picture.width() / columns; };
    const auto y = [&](int half) { return half * picture.height() / (2 * rows); };
    for (int row = 0; row < rows; ++row) {
      bool here = false;  // the terminal's cursor
      for (int column = 0; column < columns; ++column) {
        Cell& cell = cells_[size_t(row) * size_t(columns) + size_t(column)];
        const Cell now{meanOf(picture, x(column), y(2 * row), x(column + 1), y(2 * row + 1)),
                       meanOf(picture, x(column), y(2 * row + 1), x(column + 1), y(2 * row + 2))};
        if (now == cell && !all) {
          here = false;
          continue;
        }
        cell = now;
        if (!here) put(plat::format("\033[%d;%dH", row + 1, column + 1));
        here = true;
        put(plat::format("\033[38;2;%d;%d;%d;48;2;%d;%d;%dm\u2580", now.top.red, now.top.green,
                         now.top.blue, now.bottom.red, now.bottom.green, now.bottom.blue));
      }
    }
    std::fflush(stdout);
  }

 private:
  static void put(const std::string& text) { std::fwrite(text.data(), 1, text.size(), stdout); }

  Size size_;
  int columns_ = 0;
  size_t drawn_ = 0;
  std::vector<Cell> cells_;
};

}  // namespace

void live(const SessionOptions& sessionOptions, double seconds) {
  if (isatty(STDOUT_FILENO) != 1) throw Failure("the desktop is shown in a terminal only");
  host::Transcript seen(host::Transcript::Keep::kLast);
  Session session(sessionOptions, seen);
  session.startDesktop();
  {
    Canvas canvas;
    int shown = 0, asked = 0;
    Size size;
    for (double passed = 0; seconds <= 0 || passed < seconds; passed += kPeriod) {
      if (interrupted() || !session.agent().isConnected()) break;
      const int now = seen.count("fbUpdate") + seen.count("setPixelBuffer");
      if (now != shown || !(size == terminalSize())) {
        canvas.draw(Picture::ofFramebuffer(session.agent(), session.agent().pixelBuffer().rect));
      }
      shown = now;
      size = terminalSize();
      if (asked <= seen.count("fbUpdate")) {
        session.agent().fbUpdateRequest();
        asked = seen.count("fbUpdate") + 1;
      }
      session.run(kPeriod, [] { return false; });
    }
  }
  session.finish();
}

}  // namespace drive
