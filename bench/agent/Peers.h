#pragma once

#include <string>

namespace bench {

// Prints the processor time of other programs that capture an X desktop, each under every workload,
// and of the agent without DAMAGE beside one of them. Those that are not installed are named on
// standard error and left out.
void measurePeers(const std::string& agent);

}  // namespace bench
