#include "plat/log/LogManager.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>
#include <utility>

#include "plat/Report.h"
#include "plat/Text.h"
#include "plat/Time.h"
#include "plat/log/LogNames.h"
#include "plat/log/LogThreshold.h"

namespace plat {

namespace {

// Below every level: nothing is taken.
constexpr int kOff = -1;
constexpr const char* kDefaultSpec = "*:stderr:10";

// False for text that is no level.
bool parseLevel(const std::string& text, int& level) {
  char* end = nullptr;
  errno = 0;
  const long value = std::strtol(text.c_str(), &end, 10);
  if (end == text.c_str() || *end != '\0' || errno == ERANGE) return false;
  if (value < 0 || value > INT_MAX) return false;
  level = static_cast<int>(value);
  return true;
}

}  // namespace

int LogManager::Connection::levelOf(std::string_view source) const {
  const auto it = levels.find(source);
  return it == levels.end() ? defaultLevel : it->second;
}

void LogManager::Connection::set(std::string_view source, int level) {
  if (source == "*") {
    levels.clear();
    defaultLevel = level;
  } else {
    levels.insert_or_assign(std::string(source), level);
  }
}

LogManager& LogManager::instance() {
  // Never destroyed: static objects log until the very end.
  static LogManager* const manager = new LogManager;
  return *manager;
}

LogManager::LogManager()
    : stderr_("stderr", LogDestFile::Kind::kStandardError),
      file_("file", LogDestFile::Kind::kFile),
      startUpSpec_(kDefaultSpec) {
  setReporter([](const char* source, int level, const char* line) {
    try {
      instance().write(source, level, line);
    } catch (...) {
    }
  });
  addDest(stderr_);
  addDest(file_);
  connectionOf(stderr_)->defaultLevel = 10;
}

void LogManager::addSource(LogThreshold& source) {
  const std::lock_guard lock(mutex_);
  sources_.push_back(&source);
  source.level = levelOf(source);
}

void LogManager::removeSource(LogThreshold& source) {
  const std::lock_guard lock(mutex_);
  std::erase(sources_, &source);
}

void LogManager::addDest(LogDest& dest) {
  const std::lock_guard lock(mutex_);
  connections_.push_back({&dest, kOff, {}});
}

void LogManager::removeDest(LogDest& dest) {
  const std::lock_guard lock(mutex_);
  std::erase_if(connections_, [&](const Connection& c) { return c.dest == &dest; });
  updateLevels();
}

std::vector<std::string> LogManager::sourceNames() const {
  const std::lock_guard lock(mutex_);
  std::set<std::string> names;
  for (const char* name : knownLogSources()) names.insert(name);
  for (const LogThreshold* source : sources_) names.insert(source->name);
  return {names.begin(), names.end()};
}

std::vector<std::string> LogManager::destNames() const {
  const std::lock_guard lock(mutex_);
  std::set<std::string> names;
  for (const Connection& connection : connections_) names.insert(connection.dest->name());
  return {names.begin(), names.end()};
}

std::vector<LogManager::Element> LogManager::parse(std::string_view spec) {
  std::vector<Element> elements;
  while (!spec.empty()) {
    const size_t comma = spec.find(',');
    const std::string text(spec.substr(0, comma));
    spec = comma == std::string_view::npos ? std::string_view() : spec.substr(comma + 1);

    const size_t first = text.find(':');
    const size_t second = first == std::string::npos ? first : text.find(':', first + 1);
    int level = 0;
    if (second == std::string::npos || !parseLevel(text.substr(second + 1), level)) {
      std::fprintf(stderr, "Failed to parse log param element: '%s'\n", text.c_str());
      continue;
    }
    const std::string target = text.substr(first + 1, second - first - 1);
    const auto it = std::find_if(connections_.begin(), connections_.end(),
                                 [&](const Connection& c) { return target == c.dest->name(); });
    if (it == connections_.end()) {
      std::fprintf(stderr, "No LogDest found: '%s'\n", target.c_str());
      continue;
    }
    if (it->dest->isUsable()) elements.push_back({text.substr(0, first), it->dest, level});
  }
  return elements;
}

void LogManager::setLogSpec(std::string_view spec) {
  const std::lock_guard lock(mutex_);
  const std::vector<Element> elements = parse(spec);
  if (spec.empty() || !elements.empty()) {
    for (Connection& connection : connections_) connection.set("*", kOff);
    for (const Element& element : elements) {
      connectionOf(*element.dest)->set(element.source, element.level);
    }
  }
  const bool first = !configured_;
  configured_ = true;
  updateLevels();
  if (first) replay();
}

void LogManager::setStartUpSpec(std::string_view spec) {
  const std::lock_guard lock(mutex_);
  startUpSpec_ = spec;
  setLogSpec(paramSpec_.empty() ? startUpSpec_ : paramSpec_);
}

void LogManager::setLogParam(std::string_view spec) {
  const std::lock_guard lock(mutex_);
  paramSpec_ = spec;
  if (paramSpec_.empty() && !configured_) return;
  setLogSpec(paramSpec_.empty() ? startUpSpec_ : paramSpec_);
}

void LogManager::setLevel(const LogDest& dest, std::string_view source, int level) {
  const std::lock_guard lock(mutex_);
  if (Connection* connection = connectionOf(dest)) {
    connection->set(source, std::max(level, kOff));
    updateLevels();
  }
}

void LogManager::setCompact(bool compact) {
  stderr_.setCompact(compact);
  file_.setCompact(compact);
}

void LogManager::write(const char* source, int level, std::string text) {
  const int64_t timeMs = (wallClockTime() - kUnixEpoch) / kTicksPerMs;
  // Lines of ours may be several; texts from elsewhere, which are not to look like lines, have lost
  // their newlines before.
  const LogLine line{timeMs, std::max(level, 0), source,
                     escapedControls(std::move(text), Newlines::kKept)};
  const std::lock_guard lock(mutex_);
  if (configured_) {
    dispatch(line);
  } else {
    mem_.write(line);
  }
}

bool LogManager::dispatch(const LogLine& line) {
  bool taken = false;
  // By index: a destination that logs, or sets levels, comes back here.
  for (size_t i = 0; i < connections_.size(); ++i) {
    if (line.level > connections_[i].levelOf(line.source)) continue;
    taken = true;
    try {
      connections_[i].dest->write(line);
    } catch (...) {
    }
  }
  return taken;
}

void LogManager::replay() {
  bool replayed = false;
  for (const LogLine& line : mem_.take()) replayed |= dispatch(line);
  if (replayed) write("ruvoagent", 100, "Finished replaying stored messages");
}

LogManager::Connection* LogManager::connectionOf(const LogDest& dest) {
  const auto it = std::find_if(connections_.begin(), connections_.end(),
                               [&](const Connection& c) { return c.dest == &dest; });
  return it == connections_.end() ? nullptr : &*it;
}

int LogManager::levelOf(const LogThreshold& source) const {
  if (!configured_) return INT_MAX;
  int level = kOff;
  for (const Connection& connection : connections_) {
    level = std::max(level, connection.levelOf(source.name));
  }
  return level;
}

void LogManager::updateLevels() {
  for (LogThreshold* source : sources_) source->level = levelOf(*source);
}

}  // namespace plat
