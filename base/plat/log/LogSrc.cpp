#include "plat/log/LogSrc.h"

#include <cerrno>
#include <cstdio>
#include <string>
#include <utility>

#include "plat/log/LogManager.h"

namespace plat {

LogSrc::LogSrc(const char* name) : threshold_{name} {
  LogManager::instance().addSource(threshold_);
}

LogSrc::~LogSrc() {
  LogManager::instance().removeSource(threshold_);
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
    std::string line;
    char buffer[512];
    va_list again;
    va_copy(again, args);
    const int length = std::vsnprintf(buffer, sizeof buffer, format, args);
    if (length > 0) {
      const size_t size = static_cast<size_t>(length);
      if (size < sizeof buffer) {
        line.assign(buffer, size);
      } else {
        line.resize(size);
        std::vsnprintf(line.data(), size + 1, format, again);
      }
    }
    va_end(again);
    LogManager::instance().write(name(), level, std::move(line));
  } catch (...) {
  }
  errno = savedErrno;
}

}  // namespace plat
