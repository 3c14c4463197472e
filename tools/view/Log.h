#pragma once

#include <string>

namespace view {

// A line on standard error, with what could not be printed or would end the line replaced.
void log(const std::string& text);

}  // namespace view
