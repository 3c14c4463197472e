#pragma once

#include <string>

namespace plat {

// Throws BadUtf8 with the message, or fails an assertion with it when the debugging switch
// "_BadUtf8Assert" is set.
[[noreturn]] void badUtf8(const std::string& message);

}  // namespace plat
