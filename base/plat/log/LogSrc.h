#pragma once

#include <cstdarg>

#include "plat/log/LogThreshold.h"

namespace plat {

// A named source of log lines; one static object for each class or source file. It registers itself
// at static initialisation and may be used from any thread. The name must have static storage.
//
// Levels are plain integers, smaller is more severe: 0 error, 30 information, 100 debug.
class LogSrc {
 public:
  explicit LogSrc(const char* name);
  ~LogSrc();
  LogSrc(const LogSrc&) = delete;
  LogSrc& operator=(const LogSrc&) = delete;

  const char* name() const { return threshold_.name; }
  // The most verbose level that any destination takes from this source.
  int level() const { return threshold_.level.load(std::memory_order_relaxed); }
  bool enabled(int level) const { return level <= this->level(); }

  void error(const char* format, ...) __attribute__((format(printf, 2, 3)));  // level 0
  void info(const char* format, ...) __attribute__((format(printf, 2, 3)));   // level 30
  void debug(const char* format, ...) __attribute__((format(printf, 2, 3)));  // level 100
  void write(int level, const char* format, ...) __attribute__((format(printf, 3, 4)));
  void vwrite(int level, const char* format, va_list args) __attribute__((format(printf, 3, 0)));

 private:
  LogThreshold threshold_;
};

}  // namespace plat
