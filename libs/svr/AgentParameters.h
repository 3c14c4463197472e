#pragma once

#include "plat/StringParameter.h"

namespace svr {

// Sizes for which there must be display modes, "WxH" with commas between.
extern plat::StringParameter randrSizes;

}  // namespace svr
