#pragma once

#include <string>
#include <vector>

namespace bench {

// Rows of the table, one line of JSON each, on standard output. Of each pair of repetitions the
// ratio is taken; noise is half of their spread, and null with one pair only. A goal of 0 is none.
void printRow(const std::string& name, const std::string& unit, const std::vector<double>& ours,
              const std::vector<double>& yardstick, const std::string& against, double goal);
// One that has no yardstick but its goal.
void printRow(const std::string& name, const std::string& unit, double ours, double goal);
// One whose goal is a difference to the yardstick: ours is the median of the differences, the ratio
// that of the medians of the totals; noise is half of what the middle half of the differences
// spans, in yardsticks.
void printDifference(const std::string& name, const std::string& unit,
                     const std::vector<double>& ours, const std::vector<double>& yardstick,
                     const std::string& against, double goal);
// What is no row but drawn: numbers of a series ("latency", "load") for one who was measured.
void printSeries(const std::string& series, const std::string& who, const std::string& what,
                 const std::vector<double>& values);

}  // namespace bench
