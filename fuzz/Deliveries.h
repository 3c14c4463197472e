#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>

#include "plat/log/LogManager.h"
#include "support/SocketPair.h"

// The input of a fuzzer of channels: it arrives in pieces of as many bytes as its first byte tells.
// Nothing is logged.
class Deliveries {
 public:
  Deliveries(const uint8_t* data, size_t size)
      : piece_(*data == 0 ? size : *data), left_(reinterpret_cast<const char*>(data), size) {
    left_.remove_prefix(1);
    static const bool quiet = (plat::LogManager::instance().setLogSpec(""), true);
    static_cast<void>(quiet);
  }

  // The end that is tested.
  plat::FileDescriptor takeEnd() { return std::move(pair_.ours); }
  // Each piece is followed by read(), which tells whether the end is still open. What is answered
  // is dropped.
  template <typename F>
  void deliver(F read) {
    for (bool isOpen = true; isOpen && !left_.empty(); pair_.take()) {
      const ssize_t n = pair_.put(left_.substr(0, piece_));
      if (n > 0) left_.remove_prefix(static_cast<size_t>(n));
      isOpen = read();
    }
  }
  void hangUp() { pair_.peer.reset(); }

 private:
  const size_t piece_;
  std::string_view left_;
  support::SocketPair pair_;
};
