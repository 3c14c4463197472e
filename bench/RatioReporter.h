#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <map>
#include <ostream>
#include <string>
#include <vector>

// Prints the usual table and, after it, how long "<what>/ours/<size>" took beside every
// "<what>/<yardstick>/<size>": below 1 is faster than the yardstick.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (!run.error_occurred && run.run_type == Run::RT_Iteration) note(run);
    }
  }

  void Finalize() override {
    ConsoleReporter::Finalize();
    for (const auto& [key, times] : times_) {
      const auto ours = times.find("ours");
      if (ours == times.end()) continue;
      for (const auto& [name, time] : times) {
        if (name != "ours") {
          GetOutputStream() << key << ": ours / " << name << " = " << ours->second / time << "\n";
        }
      }
    }
  }

 private:
  void note(const Run& run) {
    const std::string name = run.benchmark_name();
    const size_t first = name.find('/');
    if (first == std::string::npos) return;
    const size_t second = std::min(name.find('/', first + 1), name.size());
    const std::string key = name.substr(0, first) + name.substr(second);
    const bool realTime = run.run_name.time_type == "real_time";
    times_[key][name.substr(first + 1, second - first - 1)] =
        realTime ? run.GetAdjustedRealTime() : run.GetAdjustedCPUTime();
  }

  std::map<std::string, std::map<std::string, double>> times_;
};
