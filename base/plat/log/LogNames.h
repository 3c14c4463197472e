#pragma once

#include <span>

namespace plat {

// The sources that are listed although the program at hand may not contain their component.
std::span<const char* const> knownLogSources();

}  // namespace plat
