#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace ruvohost {

// What calls of this library throw.
class Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A rectangle of pixels; x2 and y2 lie outside it.
struct Rect {
  int32_t x1 = 0, y1 = 0, x2 = 0, y2 = 0;

  int32_t width() const { return x2 - x1; }
  int32_t height() const { return y2 - y1; }
  bool isEmpty() const { return x2 <= x1 || y2 <= y1; }
  friend bool operator==(const Rect&, const Rect&) = default;
};

// How a pixel lies in memory: RFC 6143's PIXEL_FORMAT with an alpha channel added. A maximum of 0
// is an absent channel.
struct PixelFormat {
  uint8_t bitsPerPixel = 0, depth = 0;
  bool bigEndian = false;
  bool trueColour = true;  // else values are indices of a colour map
  uint16_t redMax = 0, greenMax = 0, blueMax = 0, alphaMax = 0;
  uint8_t redShift = 0, greenShift = 0, blueShift = 0, alphaShift = 0;

  friend bool operator==(const PixelFormat&, const PixelFormat&) = default;
};

struct Update {
  std::vector<Rect> copied;  // moved by dx, dy
  int32_t dx = 0, dy = 0;
  std::vector<Rect> changed;
};

// The pointer's image; the hotspot is at 0,0 of the rectangle. Pixels are rows of red, green, blue
// and alpha, 8 bits each, the colours premultiplied. Without an image nothing is to be drawn.
struct Cursor {
  bool visible = false;
  Rect rect;
  std::vector<uint8_t> rgba;
};

struct Monitor {
  std::string name;
  Rect rect;
  bool primary = false;
};

struct Monitors {
  std::vector<Monitor> all;
  std::string parameter;  // value of the agent's parameter `Monitor`
  std::string captured;   // what is captured of them; empty for everything
};

struct LogLine {
  uint32_t level = 0;  // 0 error, 30 information, 100 debug
  std::string source, text;
};

// A request that the agent did not carry out.
struct Refusal {
  enum class Kind {
    kDisplaySize,
    kMonitors,
    kParameter,
    kKeySymbol,      // the keyboard has no key to spare for a symbol
    kClipboardText,  // too long
    kInput,          // keys and buttons reach nobody: the X server has no XTEST
    kLog,
  };

  Kind kind = Kind::kParameter;
  std::string text;     // the agent's words
  uint32_t keysym = 0;  // of kKeySymbol
};

// What came of a request.
struct Outcome {
  enum class Result { kDone, kRefused, kTimedOut, kDisconnected };

  Result result = Result::kDone;
  std::string text;  // why, when it was not done
  double ms = 0;     // from the request on

  bool isDone() const { return result == Result::kDone; }
};

}  // namespace ruvohost
