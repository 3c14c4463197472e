#include "plat/log/LogSrc.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <string>

#include "plat/Time.h"
#include "plat/log/LogManager.h"

namespace plat {

LogSrc::LogSrc(const char* name) : name_(name), level_(INT_MAX) {
  LogManager::instance().addSource(*this);
}

LogSrc::~LogSrc() {
  LogManager::instance().removeSource(*this);
}

#define WRITE_AT(level)          \
  do {                           \
    if (!enabled(level)) return; \
    va_list args;                \
    va_start(args, format);      \
    vwrite(level, format, args); \
    va_end(args);                \
  } while (false)

void LogSrc::error(const char* format, ...) {
  WRITE_AT(0);
}

void LogSrc::info(const char* format, ...) {
  WRITE_AT(30);
}

void LogSrc::debug(const char* format, ...) {
  WRITE_AT(100);
}

void LogSrc::write(int level, const char* format, ...) {
  WRITE_AT(level);
}

#undef WRITE_AT

// Destructors and error paths log: nothing leaves this function, and errno survives it.
void LogSrc::vwrite(int level, const char* format, va_list args) {
  if (!enabled(level)) return;
  const int savedErrno = errno;
  try {
    const int64_t timeMs = (wallClockTime() - kUnixEpoch) / kTicksPerMs;
    LogLine line{timeMs, std::max(level, 0), name_, {}};
    char buffer[512];
    va_list again;
    va_copy(again, args);
    const int length = std::vsnprintf(buffer, sizeof buffer, format, args);
    if (length > 0) {
      const size_t size = static_cast<size_t>(length);
      if (size < sizeof buffer) {
        line.text.assign(buffer, size);
      } else {
        line.text.resize(size);
        std::vsnprintf(line.text.data(), size + 1, format, again);
      }
    }
    va_end(again);
    LogManager::instance().write(line);
  } catch (...) {
  }
  errno = savedErrno;
}

}  // namespace plat
