#pragma once

#include <functional>
#include <list>

#include "io/FdPollManager.h"

namespace host {

class AgentConnection;

// A loop for programs that have none of their own: waits for any number of agents, and for
// descriptors of the program. There may be one on a thread at a time.
class Loop {
 public:
  Loop();
  ~Loop();
  Loop(const Loop&) = delete;
  Loop& operator=(const Loop&) = delete;

  // Neither is owned; both must outlive the loop or be removed.
  void add(AgentConnection& agent);
  void remove(AgentConnection& agent);
  // Calls back, on every turn, while the descriptor is readable or at its end.
  void watch(int fd, std::function<void()> readable);
  void unwatch(int fd);

  // One turn of at most timeoutMs (-1 without limit). A signal that is handled ends it, too.
  void process(int timeoutMs);
  // Runs turns until done() says so or the time is over; returns done().
  bool processUntil(const std::function<bool()>& done, int timeoutMs);

 private:
  class Agent;
  class Watch;

  io::FdPollManager manager_;
  std::list<Agent> agents_;
  std::list<Watch> watches_;
};

}  // namespace host
