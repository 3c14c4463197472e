#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

#include "plat/log/LogDest.h"

namespace plat {

// Text lines on standard error or in a file. Every line is one write, coloured on a terminal.
//
// Full lines: "<number> time host program[pid]: source: message", UTC. Compact lines: "time source:
// message", local time.
class LogDestFile : public LogDest {
 public:
  enum class Kind { kStandardError, kFile };

  LogDestFile(const char* name, Kind kind);
  ~LogDestFile() override;

  void write(const LogLine& line) override;

  void setCompact(bool compact) { compact_ = compact; }

  // Where the lines go (kind file only). The path is `file` when that is absolute, else `file` in
  // `directory`; an empty `file` means "ruvoagent.log", an empty `directory` "$HOME/.ruvo". The
  // file is opened when the first line comes, for appending and with mode 0600; when that fails the
  // default file in the directory is tried. Does nothing when the resulting path is the present
  // one.
  void setPath(const std::string& directory, const std::string& file);
  // The path in use, or to be used.
  std::string path() const;

  // Size in bytes from which on the file is renamed, with ".bak" added to its name, before the next
  // line is written to a new one. 0, as it is at first: never.
  void setSizeLimit(uint64_t bytes);

  // The line as it is written, with its line feed and without colour.
  static std::string formatLine(const LogLine& line, bool compact);
  // The SGR parameters of a level, such as "31;1".
  static const char* colourOf(int level);

 private:
  void open();
  void close();
  void rotate();
  std::string directory() const;
  std::string defaultPath() const;
  std::string configuredPath() const;
  // Returns the error, empty if there is none.
  std::string tryOpen(const std::string& path);

  const Kind kind_;
  std::atomic<bool> compact_ = false;
  mutable std::mutex mutex_;
  int fd_ = -1;
  bool opened_ = false;  // an attempt was made, successful or not
  uint64_t sizeLimit_ = 0;
  std::string directory_;
  std::string fileName_;
  std::string path_;
};

}  // namespace plat
