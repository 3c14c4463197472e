#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "CallCounts.h"
#include "host/AgentConnection.h"
#include "host/AgentProcess.h"
#include "host/Transcript.h"

namespace bench {

using Clock = std::chrono::steady_clock;

inline double msSince(Clock::time_point begin) {
  return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

// Processor time that the threads of a process have used, in seconds.
double cpuSeconds(pid_t pid);
// Resident memory of a process in bytes, without what it maps of shared memory: the frame is not
// its own. A page that several processes map counts in part for each when proportional.
uint64_t ownMemory(pid_t pid, bool proportional);

// The library that counts an agent's calls: beside it, for its own architecture.
std::string countLibraryFor(const std::string& agent);

double median(std::vector<double> values);
double percentile(std::vector<double> values, double part);

// The agent under measurement, and the server that drives it: it reads what changed as an encoder
// would, and asks for the next update.
class Subject : public host::Transcript {
 public:
  // countCalls: with the counting library at this path preloaded; empty leaves it out.
  // parameters are for the agent's command line.
  Subject(const std::string& agent, const std::string& display, const std::string& countLibrary,
          const std::vector<std::pair<std::string, std::string>>& parameters = {});
  ~Subject() override;

  host::AgentConnection& connection() { return *connection_; }
  pid_t pid() const { return process_->pid(); }
  // Null without the counting library.
  const CallCounts* counts() const { return counts_; }

  void run(double seconds);
  // Waits until an update arrives that is later than now. False after timeoutMs.
  bool waitForUpdate(int timeoutMs);
  void settle() { run(0.3); }

  uint64_t pixels() const { return pixels_; }
  Clock::time_point lastUpdate() const { return lastUpdate_; }

 private:
  void noted(std::string_view message) override;

  std::string countFile_;
  CallCounts* counts_ = nullptr;
  std::optional<host::AgentProcess> process_;
  std::unique_ptr<host::AgentConnection> connection_;
  std::vector<uint8_t> mirror_;
  uint64_t pixels_ = 0;
  Clock::time_point lastUpdate_;
};

}  // namespace bench
