#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace plat {

// Throws SystemException "open" for a directory, and Exception "not a regular file".
void requireRegularFile(int fd);

// What follows in a file, at most limit bytes of it. Its size is not asked for: it may be growing,
// or be none, as in /proc. Throws SystemException "read".
std::string readUpTo(int fd, size_t limit);

// The path of the program that the search path (PATH) finds; empty when it finds none.
std::string findProgram(std::string_view name);

}  // namespace plat
