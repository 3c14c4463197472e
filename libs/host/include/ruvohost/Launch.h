#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace ruvohost {

// How to start an agent.
struct Launch {
  // How the agent gets its end of the channel: as an inherited descriptor, or by connecting to a
  // UNIX socket in a directory of its own.
  enum class Channel { kDescriptor, kNamedSocket };

  // Path of the program; empty takes the one on PATH.
  std::string agent;
  // "user", "service" or "virtual".
  std::string mode = "user";
  // The X display; empty takes DISPLAY.
  std::string display;
  // Parameters of the agent, by name.
  std::vector<std::pair<std::string, std::string>> parameters;
  // Added to this process's environment, or replacing parts of it.
  std::vector<std::pair<std::string, std::string>> environment;
  Channel channel = Channel::kDescriptor;
  // With a named socket: the agent lets only us speak, by a secret that it knows the hash of.
  bool useHash = false;
  // User and group that the agent runs as, when this process is root; -1 leaves them.
  int64_t userId = -1;
  int64_t groupId = -1;
  // Descriptors for the agent's standard output and error, not owned; -1 inherits ours.
  int standardOutput = -1;
  int standardError = -1;
  // Keys for new symbols are taken from symbols that were not used for a while. Off leaves them to
  // the parameters.
  bool reuseKeys = true;
};

// The agent that stands beside the running program, else the one on PATH; "ruvoagent" when there is
// none, which fails when it is started.
std::string findAgent();

}  // namespace ruvohost
