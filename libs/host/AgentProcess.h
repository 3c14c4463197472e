#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "plat/FileDescriptor.h"

namespace host {

// How to start an agent.
struct LaunchOptions {
  // How the agent gets its end of the channel: as an inherited descriptor, by connecting to a UNIX
  // socket, or not at all ("-dummy").
  enum class Channel { kDescriptor, kNamedSocket, kNone };

  // Path of the program.
  std::string agent;
  std::string mode = "user";
  // DISPLAY for the agent; empty inherits ours.
  std::string display;
  // Keys for new symbols are taken from symbols that have rested.
  bool reuseGrafts = true;
  // Name and value; they follow the pipe name on the command line.
  std::vector<std::pair<std::string, std::string>> parameters;
  Channel channel = Channel::kDescriptor;
  // With a named socket: prove to the agent who we are with a secret that it knows the hash of.
  bool useHash = false;
  // Further options before the pipe name, such as "-lppDebug" or "-fork".
  std::vector<std::string> pipeOptions;
  // Added to our environment, or replacing parts of it.
  std::vector<std::pair<std::string, std::string>> environment;
  // The agent's standard output and error; -1 inherits ours. Not owned.
  int standardOutput = -1;
  int standardError = -1;
  // User and group that the agent runs as, when we are root; -1 leaves them.
  int64_t userId = -1;
  int64_t groupId = -1;
};

// An agent that was started. Destroying it closes the channel if it is still held, gives the agent
// a moment to leave by itself, then ends it.
class AgentProcess {
 public:
  // Throws SystemException when the program cannot be started, plat::Exception when it ends before
  // it has connected to a named socket, or does not connect in 10 s.
  static AgentProcess launch(const LaunchOptions& options);

  AgentProcess(AgentProcess&& other) noexcept;
  AgentProcess& operator=(AgentProcess&&) = delete;
  ~AgentProcess();

  pid_t pid() const { return pid_; }
  // Our end of the channel; can be taken once.
  plat::FileDescriptor takeChannel() { return std::move(channel_); }
  void signal(int signalNumber);
  // The exit status, or 128 + the number of the signal that ended it; nothing when the agent still
  // runs after timeoutMs (-1 waits without limit).
  std::optional<int> wait(int timeoutMs);

 private:
  AgentProcess(pid_t pid, plat::FileDescriptor channel) : pid_(pid), channel_(std::move(channel)) {}

  pid_t pid_;
  plat::FileDescriptor channel_;
  std::optional<int> status_;
};

}  // namespace host
