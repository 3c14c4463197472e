#include "Subject.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace bench {

double cpuSeconds(pid_t pid) {
  uint64_t all = 0;
  const std::string tasks = "/proc/" + std::to_string(pid) + "/task";
  for (const auto& task : std::filesystem::directory_iterator(tasks)) {
    std::ifstream file(task.path() / "schedstat");
    uint64_t nanoseconds = 0;
    file >> nanoseconds;
    all += nanoseconds;
  }
  return double(all) / 1e9;
}

uint64_t ownMemory(pid_t pid, bool proportional) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/smaps_rollup");
  uint64_t all = 0, shared = 0;
  for (std::string line; std::getline(file, line);) {
    std::istringstream words(line);
    std::string name;
    uint64_t kilobytes = 0;
    words >> name >> kilobytes;
    if (name == (proportional ? "Pss:" : "Rss:")) all = kilobytes;
    if (name == "Pss_Shmem:") shared = kilobytes;
  }
  if (!proportional) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
      if (line.starts_with("RssShmem:")) shared = std::stoull(line.substr(9));
    }
  }
  return (all - std::min(all, shared)) * 1024;
}

std::string countLibraryFor(const std::string& agent) {
  return std::filesystem::absolute(agent).replace_filename("libcountcalls.so");
}

double median(std::vector<double> values) {
  return percentile(std::move(values), 0.5);
}

double percentile(std::vector<double> values, double part) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  return values[static_cast<size_t>(part * double(values.size() - 1))];
}

Subject::Subject(const std::string& agent, const std::string& display,
                 const std::string& countLibrary,
                 const std::vector<std::pair<std::string, std::string>>& parameters)
    : Transcript(Keep::kLast) {
  host::LaunchOptions options;
  options.agent = agent;
  options.display = display;
  options.parameters = parameters;
  if (!countLibrary.empty()) {
    if (!std::filesystem::exists(countLibrary)) throw std::runtime_error("no " + countLibrary);
    char name[] = "/tmp/ruvo-bench-XXXXXX";
    const int fd = mkstemp(name);
    if (fd < 0 || ftruncate(fd, sizeof(CallCounts)) < 0) throw std::runtime_error("mkstemp failed");
    countFile_ = name;
    counts_ = static_cast<CallCounts*>(
        mmap(nullptr, sizeof(CallCounts), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
    close(fd);
    options.environment = {{"LD_PRELOAD", countLibrary}, {"RUVO_CALL_COUNTS", countFile_}};
  }
  process_.emplace(host::AgentProcess::launch(options));
  connection_ = std::make_unique<host::AgentConnection>(process_->takeChannel(), this);
  connection_->start();
  if (!connection_->processUntil([&] { return connection_->pixels() != nullptr; }, 10000)) {
    throw std::runtime_error("the agent does not publish its buffer");
  }
  const host::PixelBufferInfo& info = connection_->pixelBuffer();
  mirror_.resize(size_t(info.stride) * size_t(info.rect.height()) *
                 size_t(info.format.bytesPerPixel()));
  connection_->fbUpdateRequest();
  settle();
}

Subject::~Subject() {
  connection_.reset();
  process_.reset();
  if (counts_) munmap(counts_, sizeof(CallCounts));
  if (!countFile_.empty()) unlink(countFile_.c_str());
}

void Subject::run(double seconds) {
  connection_->processUntil([] { return false; }, static_cast<int>(seconds * 1000));
}

bool Subject::waitForUpdate(int timeoutMs) {
  const int before = count("fbUpdate");
  return connection_->processUntil([&] { return count("fbUpdate") > before; }, timeoutMs);
}

void Subject::noted(std::string_view message) {
  if (message != "fbUpdate") return;
  lastUpdate_ = Clock::now();
  const host::PixelBufferInfo& info = connection_->pixelBuffer();
  const auto bytes = static_cast<size_t>(info.format.bytesPerPixel());
  for (const rfb::Rect& rect : updates.back().changed.rects()) {
    pixels_ += uint64_t(rect.width()) * uint64_t(rect.height());
    for (int y = rect.tl.y - info.rect.tl.y; y < rect.br.y - info.rect.tl.y; ++y) {
      const size_t offset = (size_t(y) * info.stride + size_t(rect.tl.x - info.rect.tl.x)) * bytes;
      std::memcpy(&mirror_[offset], connection_->pixels() + offset, size_t(rect.width()) * bytes);
    }
  }
  connection_->fbUpdateRequest();
}

}  // namespace bench
