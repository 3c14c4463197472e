#pragma once

#include <string>

#include "Session.h"
#include "rfb/Rect.h"

namespace drive {

struct ShotOptions {
  std::string file;
  bool cursor = false;
  std::string region;  // WxH+X+Y; empty: all
  std::string window;  // number or name
  double every = 0;    // seconds between pictures
  int count = 0;       // 0: until interrupted
};
void shot(const SessionOptions& session, const ShotOptions& options);
// Writes the cursor's image alone.
void cursorShot(const SessionOptions& session, const std::string& file);
// From "640x480+10-20"; false for anything else.
bool parseRegion(const std::string& text, rfb::Rect& region);

struct WatchOptions {
  double seconds = 0;  // 0: until interrupted
  bool noLog = false;
  bool quiet = false;
  int logLevel = 1000;
  bool json = false;
  bool draw = false;  // into a window of its own
};
void watch(const SessionOptions& session, const WatchOptions& options);

struct RawOptions {
  double seconds = 0;
  bool noStart = false;
};
void raw(const SessionOptions& session, const RawOptions& options);

struct RecordOptions {
  std::string file;
  int rate = 10;  // frames a second
  double seconds = 0;
};
void record(const SessionOptions& session, const RecordOptions& options);

// Shows the desktop in the terminal, for so many seconds (0: until interrupted).
void live(const SessionOptions& session, double seconds);

}  // namespace drive
