#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "agent/Agent.h"
#include "support/Frames.h"

// The real program under test, with the bare bytes of its channel.
class RawAgent {
 public:
  using Message = support::Message;
  struct Log {
    uint32_t level;
    std::string source;
    std::string text;
  };

  explicit RawAgent(const std::string& display, const Agent::Parameters& parameters = {})
      : RawAgent(Agent::options(display, parameters)) {}
  explicit RawAgent(host::LaunchOptions options)
      : errors_(memfd_create("errors", MFD_CLOEXEC)),
        process_(host::AgentProcess::launch(bare(std::move(options), errors_.get()))),
        socket_(process_.takeChannel()) {}

  // Writes all; what the agent sends meanwhile is not read.
  void send(const std::string& bytes) {
    ASSERT_EQ(::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(bytes.size()));
  }
  // Writes what the agent takes without any of its output being read. The bytes written.
  size_t sendSome(const std::string& bytes) {
    const ssize_t n =
        ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    return n < 0 ? 0 : static_cast<size_t>(n);
  }
  void hangUp() { socket_.reset(); }
  void signal(int number) { process_.signal(number); }

  // Reads until done() or the end of the channel. False when neither comes.
  bool readUntil(const std::function<bool()>& done) {
    while (!done()) {
      pollfd entry{socket_.get(), POLLIN, 0};
      if (poll(&entry, 1, 20000) <= 0) return false;
      char buffer[65536];
      const ssize_t n = recv(socket_.get(), buffer, sizeof buffer, 0);
      if (n <= 0) return done();
      bytes_.append(buffer, static_cast<size_t>(n));
      unparsed_.append(buffer, static_cast<size_t>(n));
      for (Message& message : support::takeMessages(unparsed_)) {
        messages.push_back(std::move(message));
      }
    }
    return true;
  }
  // Everything sent before now has had its effect, and what the agent had to say has arrived.
  void sync() {
    const Message answer{"badMsg", support::shortString("sync" + std::to_string(syncs_++))};
    send(support::framed(answer.body));
    const auto find = [&] { return std::find(messages.begin(), messages.end(), answer); };
    ASSERT_TRUE(readUntil([&] { return find() != messages.end(); })) << errors();
    messages.erase(find());
  }
  bool isRunning() { return !process_.wait(0); }
  int exitStatus() {
    if (socket_) readUntil([] { return false; });
    return process_.wait(20000).value_or(-1);
  }
  // What it has written to standard error.
  std::string errors() const {
    std::string text(static_cast<size_t>(lseek(errors_.get(), 0, SEEK_END)), '\0');
    EXPECT_EQ(pread(errors_.get(), text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
    return text;
  }
  std::vector<Log> logs() const {
    std::vector<Log> result;
    for (const Message& message : messages) {
      if (message.name != "logMsg") continue;
      const size_t length = static_cast<unsigned char>(message.body[4]);
      uint32_t level = 0;
      for (int i = 0; i < 4; ++i) level = level << 8 | static_cast<unsigned char>(message.body[i]);
      result.push_back({level, message.body.substr(5, length), message.body.substr(9 + length)});
    }
    return result;
  }
  // "level source: text" of each line at or below the level.
  std::vector<std::string> logText(uint32_t maxLevel = 0) const {
    std::vector<std::string> result;
    for (const Log& line : logs()) {
      if (line.level <= maxLevel) {
        result.push_back(std::to_string(line.level) + " " + line.source + ": " + line.text);
      }
    }
    return result;
  }
  std::vector<Message> messages;
  // All that has been read.
  const std::string& bytes() const { return bytes_; }

 private:
  static host::LaunchOptions bare(host::LaunchOptions options, int errors) {
    options.standardError = errors;
    options.reuseGrafts = false;
    return options;
  }

  plat::FileDescriptor errors_;
  host::AgentProcess process_;
  plat::FileDescriptor socket_;
  std::string bytes_;
  std::string unparsed_;
  int syncs_ = 0;
};
