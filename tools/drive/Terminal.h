#pragma once

#include <string>

namespace drive {

// Set by SIGINT and SIGTERM, and when standard output takes nothing more; commands that go on until
// interrupted look at it.
bool interrupted();
// The whole of a file, or of standard input for "-". Throws Failure.
std::string readAll(const std::string& file);

}  // namespace drive
