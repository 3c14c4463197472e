#pragma once

#include <cstdint>
#include <string>

namespace plat {

// One line on its way from a source to the destinations.
struct LogLine {
  int64_t timeMs;      // wall clock, milliseconds since 1970 UTC
  int level;           // 0 or more, smaller is more severe
  const char* source;  // the source's name; static storage
  std::string text;    // without control characters
};

// A kind of output that log specifications refer to by name. Register with LogManager::addDest and
// unregister with removeDest before destruction.
class LogDest {
 public:
  // The name must have static storage.
  explicit LogDest(const char* name) : name_(name) {}
  virtual ~LogDest() = default;
  LogDest(const LogDest&) = delete;
  LogDest& operator=(const LogDest&) = delete;

  const char* name() const { return name_; }

  // Asked when a specification names the destination; false makes it ignore the element.
  virtual bool isUsable() { return true; }

  // Called from any thread, for lines at or below the level that is set for the line's source. May
  // log itself, as long as that ends. Exceptions are dropped.
  virtual void write(const LogLine& line) = 0;

 private:
  const char* name_;
};

}  // namespace plat
