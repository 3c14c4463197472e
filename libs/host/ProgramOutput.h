#pragma once

#include <string>
#include <vector>

namespace host {

struct ProgramOutput {
  int status = 0;  // 127: there is no such program; 128 + the signal that ended it
  std::string output;
};

// Runs a program (looked up in PATH) to its end, with nothing to read and its errors thrown away.
// Throws SystemException, and Exception for one that runs longer than 10 s.
ProgramOutput runProgram(const std::vector<std::string>& arguments);

}  // namespace host
