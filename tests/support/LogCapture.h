#pragma once

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "plat/log/LogManager.h"

namespace support {

// Collects log lines up to a level while it lives, in place of other destinations.
class LogCapture : public plat::LogDest {
 public:
  explicit LogCapture(int level = 100) : plat::LogDest("capture") {
    plat::LogManager::instance().addDest(*this);
    plat::LogManager::instance().setLogSpec("*:capture:" + std::to_string(level));
    clear();  // lines held since the program's start are replayed, but are nobody's here
  }
  ~LogCapture() override {
    plat::LogManager::instance().setLogSpec("*:stderr:0");
    plat::LogManager::instance().removeDest(*this);
  }

  void write(const plat::LogLine& line) override { lines_.push_back(line); }

  // How many lines contain the text; with a level of 0 or more only lines of that level, with a
  // source only lines of that source.
  int count(std::string_view text, int level = -1, std::string_view source = {}) const {
    const auto matches = [&](const plat::LogLine& line) {
      return line.text.find(text) != std::string::npos && (level < 0 || line.level == level) &&
             (source.empty() || source == line.source);
    };
    return static_cast<int>(std::count_if(lines_.begin(), lines_.end(), matches));
  }
  bool has(std::string_view text, int level = -1, std::string_view source = {}) const {
    return count(text, level, source) > 0;
  }
  void clear() { lines_.clear(); }
  // The lines so far as "<level> <source>: <text>", which are then forgotten.
  std::vector<std::string> take() {
    std::vector<std::string> texts;
    for (const plat::LogLine& line : lines_) texts.push_back(format(line));
    clear();
    return texts;
  }
  // All lines, for messages of failed tests.
  std::string str() const {
    std::string all;
    for (const plat::LogLine& line : lines_) all += format(line) + "\n";
    return all;
  }

 private:
  static std::string format(const plat::LogLine& line) {
    return std::to_string(line.level) + " " + line.source + ": " + line.text;
  }

  std::vector<plat::LogLine> lines_;
};

}  // namespace support
