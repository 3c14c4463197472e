#pragma once

#include <stdexcept>

namespace drive {

// What ends the program with status 1 and one line.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace drive
