#pragma once

#include "plat/String.h"

namespace plat {

// The command with which processes of root are started: an absolute path and its first arguments.
// Empty when there is none.
const String& elevateCmd();
// Whether the command to be run follows as one argument with shell quoting.
bool elevateCmdSingleArg();

}  // namespace plat
