#include "svr/AgentParameters.h"

namespace svr {

plat::StringParameter randrSizes("RandR",
                                 "Comma-separated list of display geometries to make available via "
                                 "the RANDR extension, if enabled.",
                                 "");

}  // namespace svr
