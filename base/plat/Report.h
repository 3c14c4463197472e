#pragma once

namespace plat {

// Takes a line for the log; see LogSrc for the levels.
using Reporter = void (*)(const char* source, int level, const char* line);

// The log lies above this library: it installs itself here for the lines of those who cannot name
// it. Returns the former reporter; null, as at first, drops the lines.
Reporter setReporter(Reporter reporter);

// Logs a line on the source of this name, which has static storage. Leaves errno alone.
void report(const char* source, int level, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

}  // namespace plat
