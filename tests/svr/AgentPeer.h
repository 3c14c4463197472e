#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "io/FdIo.h"
#include "io/FdManager.h"
#include "support/Frames.h"
#include "support/SocketPair.h"

// The server's end of a channel, byte by byte.
class AgentPeer {
 public:
  // The agent's end, once.
  std::unique_ptr<io::Io> endpoint() { return std::make_unique<io::FdIo>(std::move(pair_.ours)); }

  // Sends bytes and lets the agent handle them.
  void send(std::string_view bytes) {
    while (!bytes.empty()) {
      const ssize_t n = pair_.put(bytes);
      if (n > 0) bytes.remove_prefix(static_cast<size_t>(n));
      ASSERT_TRUE(n > 0 || errno == EAGAIN);
      turn();
    }
  }
  void send(std::string_view name, std::string_view body) { send(test::message(name, body)); }
  static void turn() {
    for (int i = 0; i < 10 && io::FdManager::instance().process(0); ++i) {
    }
  }
  // All messages that the agent has sent since the last call.
  std::vector<test::Message> receive() {
    bytes_ += pair_.take();
    return test::takeMessages(bytes_);
  }
  void close() {
    pair_.peer.reset();
    turn();
  }

 private:
  test::SocketPair pair_;
  std::string bytes_;
};
