#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "io/FdIo.h"
#include "io/FdManager.h"
#include "plat/FileDescriptor.h"
#include "support/Frames.h"

// The server's end of a channel, byte by byte.
class AgentPeer {
 public:
  struct Message {
    std::string name;
    std::string body;
    friend bool operator==(const Message&, const Message&) = default;
  };

  AgentPeer() {
    int fds[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) abort();
    ours_.reset(fds[0]);
    theirs_.reset(fds[1]);
    plat::FileDescriptor::setNonBlocking(fds[0]);
  }

  // The agent's end, once.
  std::unique_ptr<io::Io> endpoint() { return std::make_unique<io::FdIo>(std::move(theirs_)); }

  // Sends bytes and lets the agent handle them.
  void send(std::string_view bytes) {
    while (!bytes.empty()) {
      const ssize_t n = write(ours_.get(), bytes.data(), bytes.size());
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
  std::vector<Message> receive() {
    char bytes[65536];
    for (ssize_t n; (n = read(ours_.get(), bytes, sizeof bytes)) > 0;)
      buffer_.append(bytes, static_cast<size_t>(n));
    std::vector<Message> messages;
    while (buffer_.size() >= 2) {
      const unsigned header = static_cast<unsigned>(static_cast<uint8_t>(buffer_[0])) << 8 |
                              static_cast<uint8_t>(buffer_[1]);
      const size_t length = header & 0x7FFF;
      if (buffer_.size() < 2 + length) break;
      payload_ += buffer_.substr(2, length);
      buffer_.erase(0, 2 + length);
      if (!(header & 0x8000)) continue;
      const auto nameLength = static_cast<uint8_t>(payload_[0]);
      messages.push_back({payload_.substr(1, nameLength), payload_.substr(1 + nameLength)});
      payload_.clear();
    }
    return messages;
  }
  void close() {
    ours_.reset();
    turn();
  }

 private:
  plat::FileDescriptor ours_;
  plat::FileDescriptor theirs_;
  std::string buffer_;
  std::string payload_;
};

inline void PrintTo(const AgentPeer::Message& message, std::ostream* out) {
  *out << message.name << " " << testing::PrintToString(message.body);
}
