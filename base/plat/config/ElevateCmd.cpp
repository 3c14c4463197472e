#include "plat/config/BoolParameter.h"
#include "plat/config/StringParameter.h"

namespace plat {

namespace {

// The command with which processes of root are started. This program starts none: the parameters
// are there for those who pass their configuration on.
StringParameter command(
    "ElevateCmd",
    "Command to run to obtain root privilege.  Must be an absolute path and will be followed by "
    "arguments specifying the command to be run.  For example \"/usr/bin/xterm -e sudo\"",
    "", true);
BoolParameter singleArg(
    "ElevateCmdSingleArg",
    "Whether the ElevateCmd parameter is followed by a single argument with shell quoting (true) "
    "or multiple arguments (false)",
    false, true);

}  // namespace

}  // namespace plat
