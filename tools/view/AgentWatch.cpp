#include "AgentWatch.h"

#include <poll.h>

#include <chrono>

namespace view {

namespace asio = boost::asio;
using boost::system::error_code;

void AgentWatch::stop() {
  waiting_.reset();
  // The descriptor is the agent's.
  if (descriptor_.is_open()) descriptor_.release();
  timer_.cancel();
  timing_ = false;
}

void AgentWatch::wait(ruvohost::Agent& agent, bool Waiting::*what,
                      asio::posix::stream_descriptor::wait_type type) {
  if ((*waiting_).*what) return;
  (*waiting_).*what = true;
  descriptor_.async_wait(type, [this, &agent, what, mine = waiting_](error_code error) {
    if (mine != waiting_ || error) return;
    (*mine).*what = false;
    agent.process();
  });
}

void AgentWatch::prepare(ruvohost::Agent& agent) {
  const int fd = agent.fd();
  if (descriptor_.is_open() && descriptor_.native_handle() != fd) stop();
  if (fd < 0) return;
  if (!descriptor_.is_open()) {
    descriptor_.assign(fd);
    waiting_ = std::make_shared<Waiting>();
  }
  const short events = agent.events();
  if (events & POLLIN) wait(agent, &Waiting::reading, asio::posix::stream_descriptor::wait_read);
  if (events & POLLOUT) wait(agent, &Waiting::writing, asio::posix::stream_descriptor::wait_write);
  const int next = agent.msUntilNext();
  if (next < 0) {
    if (timing_) timer_.cancel();
    timing_ = false;
    return;
  }
  const auto due = asio::steady_timer::clock_type::now() + std::chrono::milliseconds(next);
  // One that is set for about then stays.
  if (timing_ && due > due_ - std::chrono::milliseconds(2) &&
      due < due_ + std::chrono::milliseconds(2)) {
    return;
  }
  timing_ = true;
  due_ = due;
  timer_.expires_at(due);
  timer_.async_wait([this, &agent, due, mine = waiting_](error_code error) {
    if (error || mine != waiting_ || due != due_) return;
    timing_ = false;
    agent.process();
  });
}

}  // namespace view
