#include "Report.h"

#include <cstdio>
#include <optional>

#include "Subject.h"

namespace bench {

namespace {

// Without noise where that was not measured.
void print(const std::string& name, const std::string& unit, double ours, double yardstick,
           const std::string& against, double ratio, std::optional<double> noise, double goal) {
  char noiseText[32] = "null";
  if (noise) std::snprintf(noiseText, sizeof noiseText, "%.3f", *noise);
  std::printf(
      "{\"row\": \"%s\", \"unit\": \"%s\", \"ours\": %.4g, \"yardstick\": %.4g, "
      "\"against\": \"%s\", \"ratio\": %.3f, \"noise\": %s, \"goal\": %g}\n",
      name.c_str(), unit.c_str(), ours, yardstick, against.c_str(), ratio, noiseText, goal);
  std::fflush(stdout);
}

}  // namespace

void printRow(const std::string& name, const std::string& unit, const std::vector<double>& ours,
              const std::vector<double>& yardstick, const std::string& against, double goal) {
  std::vector<double> ratios;
  for (size_t i = 0; i < ours.size(); ++i) ratios.push_back(ours[i] / yardstick[i]);
  std::optional<double> noise;
  if (ratios.size() > 1) noise = (percentile(ratios, 1) - percentile(ratios, 0)) / 2;
  print(name, unit, median(ours), median(yardstick), against, median(ratios), noise, goal);
}

void printRow(const std::string& name, const std::string& unit, double ours, double goal) {
  print(name, unit, ours, goal, "the goal", ours / goal, {}, goal);
}

void printDifference(const std::string& name, const std::string& unit,
                     const std::vector<double>& ours, const std::vector<double>& yardstick,
                     const std::string& against, double goal) {
  std::vector<double> beyond;
  for (size_t i = 0; i < ours.size(); ++i) beyond.push_back(ours[i] - yardstick[i]);
  const double spread = percentile(beyond, 0.75) - percentile(beyond, 0.25);
  print(name, unit, median(beyond), median(yardstick), against, median(ours) / median(yardstick),
        spread / 2 / median(yardstick), goal);
}

void printSeries(const std::string& series, const std::string& who, const std::string& what,
                 const std::vector<double>& values) {
  std::printf("{\"series\": \"%s\", \"who\": \"%s\", \"what\": \"%s\", \"values\": [",
              series.c_str(), who.c_str(), what.c_str());
  for (size_t i = 0; i < values.size(); ++i) std::printf("%s%.4g", i ? ", " : "", values[i]);
  std::printf("]}\n");
  std::fflush(stdout);
}

}  // namespace bench
