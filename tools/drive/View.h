#pragma once

#include <string>

#include "Session.h"

namespace drive {

struct ShotOptions {
  std::string file;
  bool cursor = false;
};
void shot(const SessionOptions& session, const ShotOptions& options);
// Writes the cursor's image alone.
void cursorShot(const SessionOptions& session, const std::string& file);

struct WatchOptions {
  double seconds = 0;  // 0: until interrupted
  bool noLog = false;
};
void watch(const SessionOptions& session, const WatchOptions& options);

struct RawOptions {
  double seconds = 0;
  bool noStart = false;
};
void raw(const SessionOptions& session, const RawOptions& options);

}  // namespace drive
