#pragma once

#include <string>

namespace view {

// Whether an X server listens for a display of this machine, ":N" or ":N.S"; also true for others,
// which only a client can tell.
bool xServerAnswers(const std::string& display);

}  // namespace view
