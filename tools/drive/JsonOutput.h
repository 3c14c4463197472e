#pragma once

#include <nlohmann/json.hpp>

#include "rdr/DisplayInfo.h"
#include "rfb/Rect.h"

namespace drive {

using Json = nlohmann::ordered_json;

// [x1, y1, x2, y2]
Json rectJson(const rfb::Rect& rect);
Json monitorJson(const plat::DisplayInfo& monitor);
// On standard output; bytes that are no UTF-8 are replaced.
void printJsonLine(const Json& object);

}  // namespace drive
