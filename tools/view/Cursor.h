#pragma once

#include <ruvohost/Types.h>

#include <string>

namespace view {

// The pointer's image as a PNG in base64. Throws std::runtime_error.
std::string encodeCursor(const ruvohost::Cursor& cursor);

}  // namespace view
