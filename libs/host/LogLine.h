#pragma once

#include <cstdint>
#include <string>

namespace host {

// A line of an agent's log.
struct LogLine {
  uint32_t level = 0;
  std::string source, text;
};

}  // namespace host
