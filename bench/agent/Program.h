#pragma once

#include <functional>
#include <string>

namespace bench {

// The directory of this program, with its last slash: the others are beside it.
std::string ownDirectory();

// Does a program's work and returns its status: 1, after a line on standard error, when the work
// throws.
int runMain(const char* program, const std::function<void()>& work);

}  // namespace bench
