#pragma once

#include <cstdlib>

// What does not hold is a finding.
inline void check(bool condition) {
  if (!condition) abort();
}
