#include "plat/Report.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>

namespace plat {

namespace {

Reporter currentReporter = nullptr;

}  // namespace

Reporter setReporter(Reporter reporter) {
  Reporter former = currentReporter;
  currentReporter = reporter;
  return former;
}

void report(const char* source, int level, const char* format, ...) {
  if (!currentReporter) return;
  const int savedErrno = errno;
  char line[2048];
  va_list args;
  va_start(args, format);
  std::vsnprintf(line, sizeof line, format, args);
  va_end(args);
  currentReporter(source, level, line);
  errno = savedErrno;
}

}  // namespace plat
