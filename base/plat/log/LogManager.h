#pragma once

#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "plat/log/LogDest.h"
#include "plat/log/LogDestFile.h"
#include "plat/log/LogDestMem.h"

namespace plat {

struct LogThreshold;

// Registry of the log sources and destinations, and of the levels that connect them. Works from
// static initialisation on, and until the process ends. Until the first specification is applied
// every line is held in memory; then the held lines are replayed through it.
//
// All operations may be called from any thread.
class LogManager {
 public:
  static LogManager& instance();
  LogManager(const LogManager&) = delete;
  LogManager& operator=(const LogManager&) = delete;

  // Applies a specification, a list "<log>:<target>:<level>[,...]", in place of the former one.
  // Elements are applied left to right and "*" stands for every source, also for those that
  // register later. Bad elements are reported on standard error and ignored; when none of a
  // non-empty list is good, the former specification stays.
  void setLogSpec(std::string_view spec);

  // The specification that is in force whenever the parameter "Log" is empty, at first
  // "*:stderr:10". Applies it, or "Log" if that is set. A program calls this once when it starts.
  void setStartUpSpec(std::string_view spec);

  // Sets the level of one source, or of all for "*", for one destination, until the next
  // specification.
  void setLevel(const LogDest& dest, std::string_view source, int level);

  // For sources, which are not owned. Sets the source's level, now and whenever it changes.
  void addSource(LogThreshold& source);
  void removeSource(LogThreshold& source);
  // Hands a line on, with control characters escaped: parts of it may come from anybody, and nobody
  // is to forge a line. The name must have static storage.
  void write(const char* source, int level, std::string text);

  // The destination is not owned. removeDest waits for writes that other threads have begun.
  void addDest(LogDest& dest);
  void removeDest(LogDest& dest);

  // Sorted, without duplicates: all sources that the program knows, whether in use or not.
  std::vector<std::string> sourceNames() const;
  std::vector<std::string> destNames() const;

  LogDestFile& fileDest() { return file_; }

  // Values of the parameters "Log" and "CompactLog". Also a "Log" that is as before ends what
  // setLevel() changed.
  void setLogParam(std::string_view spec);
  void setCompact(bool compact);

 private:
  // Levels of one destination; kOff where it takes nothing.
  struct Connection {
    LogDest* dest;
    int defaultLevel;
    std::map<std::string, int, std::less<>> levels;

    int levelOf(std::string_view source) const;
    void set(std::string_view source, int level);
  };
  struct Element {
    std::string source;
    LogDest* dest;
    int level;
  };

  LogManager();
  ~LogManager() = default;

  std::vector<Element> parse(std::string_view spec);
  Connection* connectionOf(const LogDest& dest);
  bool dispatch(const LogLine& line);
  void updateLevels();
  int levelOf(const LogThreshold& source) const;
  void replay();

  // Recursive: a destination may log while it writes a line.
  mutable std::recursive_mutex mutex_;
  std::vector<LogThreshold*> sources_;
  std::vector<Connection> connections_;
  LogDestFile stderr_;
  LogDestFile file_;
  LogDestMem mem_;
  bool configured_ = false;
  std::string startUpSpec_;
  std::string paramSpec_;  // the value of "Log"
};

}  // namespace plat
