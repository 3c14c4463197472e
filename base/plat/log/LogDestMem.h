#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "plat/log/LogDest.h"

namespace plat {

// Holds lines until the real destinations are configured. When full, later lines are dropped: the
// first ones tell more about a start that went wrong. Not thread-safe; the manager serialises.
class LogDestMem : public LogDest {
 public:
  static constexpr size_t kMaxLines = 1000;

  LogDestMem() : LogDest("mem") {}

  void write(const LogLine& line) override {
    if (lines_.size() < kMaxLines) lines_.push_back(line);
  }
  // Hands the lines over and is empty afterwards.
  std::vector<LogLine> take() { return std::exchange(lines_, {}); }

 private:
  std::vector<LogLine> lines_;
};

}  // namespace plat
