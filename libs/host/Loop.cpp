#include "host/Loop.h"

#include <poll.h>

#include "host/AgentConnection.h"
#include "plat/Deadline.h"

namespace host {

class Loop::Agent : public io::FdHandler {
 public:
  explicit Agent(AgentConnection& agent) : FdHandler(agent.fd()), agent_(agent) {}

  void readReady() override { agent_.process(0); }
  void writeReady() override { agent_.process(0); }
  const AgentConnection& agent() const { return agent_; }
  // Says what the agent waits for now. Returns the time until it has something to do.
  int prepare(io::FdManager& manager) {
    if (agent_.isConnected()) {
      manager.setWants(*this, true, (agent_.events() & POLLOUT) != 0);
    } else {
      manager.unregister(*this);
    }
    return agent_.msUntilNext();
  }

  void runTimer() {
    if (agent_.msUntilNext() == 0) agent_.process(0);
  }

 private:
  AgentConnection& agent_;
};

class Loop::Watch : public io::FdHandler {
 public:
  Watch(int fd, std::function<void()> readable) : FdHandler(fd), readable_(std::move(readable)) {}

  void readReady() override { readable_(); }

 private:
  std::function<void()> readable_;
};

Loop::Loop() = default;
Loop::~Loop() = default;

void Loop::add(AgentConnection& agent) {
  agents_.emplace_back(agent);
}

void Loop::remove(AgentConnection& agent) {
  std::erase_if(agents_, [&](const Agent& entry) { return &entry.agent() == &agent; });
}

void Loop::watch(int fd, std::function<void()> readable) {
  manager_.setWants(watches_.emplace_back(fd, std::move(readable)), true, false);
}

void Loop::unwatch(int fd) {
  // Perhaps from its own callback.
  for (Watch& watch : watches_) {
    if (watch.fd() == fd) manager_.unregister(watch);
  }
}

void Loop::process(int timeoutMs) {
  for (Agent& agent : agents_) {
    const int next = agent.prepare(manager_);
    if (next >= 0 && (timeoutMs < 0 || next < timeoutMs)) timeoutMs = next;
  }
  manager_.process(timeoutMs);
  for (Agent& agent : agents_) agent.runTimer();
}

bool Loop::processUntil(const std::function<bool()>& done, int timeoutMs) {
  const plat::Deadline deadline(timeoutMs);
  while (!done()) {
    const int left = deadline.msLeft();
    if (left == 0) return false;
    process(left);
  }
  return true;
}

}  // namespace host
