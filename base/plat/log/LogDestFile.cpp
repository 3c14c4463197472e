#include "plat/log/LogDestFile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "plat/Exception.h"
#include "plat/Trust.h"

namespace plat {

namespace {

constexpr const char* kProgram = "ruvoagent";
constexpr const char* kDefaultFile = "ruvoagent.log";

// The severities of syslog, of facility user.
int syslogNumber(int level) {
  return 8 + 3 + (level >= 1) + (level >= 6) + (level >= 11) + (level >= 31);
}

void writeAll(int fd, const std::string& text) {
  size_t done = 0;
  while (done < text.size()) {
    const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;  // there is nowhere left to report it
    done += static_cast<size_t>(n);
  }
}

std::string userDirectory() {
  const char* home = std::getenv("HOME");
  return home && *home ? std::string(home) + "/.ruvo" : std::string();
}

std::string join(const std::string& directory, const std::string& file) {
  return directory.ends_with('/') ? directory + file : directory + "/" + file;
}

std::string errorText(const std::string& path, int error) {
  return SystemException(path, error).text();
}

}  // namespace

LogDestFile::LogDestFile(const char* name, Kind kind) : LogDest(name), kind_(kind) {
  if (kind_ == Kind::kStandardError) {
    fd_ = STDERR_FILENO;
    opened_ = true;
  }
}

LogDestFile::~LogDestFile() {
  close();
}

std::string LogDestFile::formatLine(const LogLine& line, bool compact) {
  const time_t seconds = static_cast<time_t>(line.timeMs / 1000);
  const int ms = static_cast<int>(line.timeMs % 1000);
  struct tm t {};
  if (compact) {
    localtime_r(&seconds, &t);
    return format("%02d:%02d:%02d.%03d %s: %s\n", t.tm_hour, t.tm_min, t.tm_sec, ms, line.source,
                  line.text.c_str());
  }
  gmtime_r(&seconds, &t);
  char date[32] = "";
  std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &t);
  char host[256] = "";
  if (gethostname(host, sizeof host - 1) != 0 || !*host) host[0] = '-';
  return format("<%d> %s %s %s[%lld]: %s: %s\n", syslogNumber(line.level),
                format("%s.%03dZ", date, ms).c_str(), host, kProgram,
                static_cast<long long>(getpid()), line.source, line.text.c_str());
}

const char* LogDestFile::colourOf(int level) {
  if (level <= 5) return "31;1";
  if (level <= 10) return "31";
  return level <= 30 ? "36" : "0";
}

void LogDestFile::write(const LogLine& line) {
  std::string text = formatLine(line, compact_);
  const std::lock_guard lock(mutex_);
  if (kind_ == Kind::kFile) {
    if (!opened_) open();
    if (sizeLimit_ != 0) rotate();
    if (fd_ < 0) return;
  }
  // Standard error can be redirected at any time.
  if (isatty(fd_)) {
    text.pop_back();
    text = format("\033[%sm", colourOf(line.level)) + text + "\033[0m\n";
  }
  writeAll(fd_, text);
}

void LogDestFile::setPath(const std::string& directory, const std::string& file) {
  const std::lock_guard lock(mutex_);
  if (kind_ != Kind::kFile) return;
  const std::string former = configuredPath();
  directory_ = directory;
  fileName_ = file;
  if (configuredPath() == former) return;
  close();
  opened_ = false;
}

std::string LogDestFile::path() const {
  const std::lock_guard lock(mutex_);
  return opened_ ? path_ : configuredPath();
}

void LogDestFile::setSizeLimit(uint64_t bytes) {
  const std::lock_guard lock(mutex_);
  sizeLimit_ = bytes;
}

std::string LogDestFile::directory() const {
  return directory_.empty() ? userDirectory() : directory_;
}

std::string LogDestFile::defaultPath() const {
  return join(directory(), kDefaultFile);
}

std::string LogDestFile::configuredPath() const {
  if (fileName_.empty()) return defaultPath();
  return fileName_.front() == '/' ? fileName_ : join(directory(), fileName_);
}

std::string LogDestFile::tryOpen(const std::string& path) {
  const std::string home = userDirectory();
  if (!home.empty() && path.starts_with(home + "/")) mkdir(home.c_str(), 0700);
  try {
    fd_ = openTrustedLog(path, 0600).release();
    path_ = path;
    return {};
  } catch (const SystemException& e) {
    return errorText(path, e.code());
  } catch (const Exception& e) {
    return path + ": " + e.text();
  }
}

void LogDestFile::open() {
  opened_ = true;
  const std::string wanted = configuredPath();
  const std::string fallback = defaultPath();
  path_ = wanted;
  std::string error = tryOpen(wanted);
  if (error.empty()) return;
  if (wanted != fallback) {
    std::fprintf(stderr, "Error opening log file: %s\n", error.c_str());
    std::fprintf(stderr, "Reverting to default log file %s\n", fallback.c_str());
    error = tryOpen(fallback);
    if (error.empty()) return;
  }
  std::fprintf(stderr, "Error opening default log file: %s\n", error.c_str());
}

void LogDestFile::close() {
  if (kind_ != Kind::kFile || fd_ < 0) return;
  if (::close(fd_) != 0) {
    std::fprintf(stderr, "Error closing log file: %s\n", errorText(path_, errno).c_str());
  }
  fd_ = -1;
}

void LogDestFile::rotate() {
  struct stat status {};
  if (fd_ < 0 || fstat(fd_, &status) != 0 || !S_ISREG(status.st_mode)) return;
  if (static_cast<uint64_t>(status.st_size) < sizeLimit_) return;
  if (std::rename(path_.c_str(), (path_ + ".bak").c_str()) != 0) return;
  close();
  const std::string path = path_;
  if (!tryOpen(path).empty()) open();
}

}  // namespace plat
