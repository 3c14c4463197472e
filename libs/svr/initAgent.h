#pragma once

namespace svr {

// The whole program: checks the run mode, reads the command line, connects to the server, runs the
// loop. Returns the exit status.
int initAgent(int argc, char** argv);

}  // namespace svr
