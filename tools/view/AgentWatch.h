#pragma once

#include <ruvohost/Agent.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>
#include <memory>

namespace view {

// Gives an agent its turns from an Asio loop.
class AgentWatch {
 public:
  explicit AgentWatch(boost::asio::io_context& loop) : timer_(loop), descriptor_(loop) {}
  ~AgentWatch() { stop(); }
  AgentWatch(const AgentWatch&) = delete;
  AgentWatch& operator=(const AgentWatch&) = delete;

  // Waits for what the agent waits for now; to be called before each turn of the loop.
  void prepare(ruvohost::Agent& agent);
  // Before the agent goes.
  void stop();

 private:
  struct Waiting {
    bool reading = false, writing = false;
  };

  void wait(ruvohost::Agent& agent, bool Waiting::*what,
            boost::asio::posix::stream_descriptor::wait_type type);

  boost::asio::steady_timer timer_;
  boost::asio::posix::stream_descriptor descriptor_;
  // Of the descriptor that is watched: what comes late from another one is not ours.
  std::shared_ptr<Waiting> waiting_;
  bool timing_ = false;
  boost::asio::steady_timer::time_point due_;
};

}  // namespace view
