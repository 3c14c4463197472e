#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "support/SocketPair.h"

// Has the peer of a pair send the input (not empty), in pieces of as many bytes as its first byte
// tells, 0 for all at once. Each is followed by read(), which tells whether our end is still open.
// What is answered is dropped. Then the peer hangs up.
template <typename F>
void deliverPieces(const uint8_t* data, size_t size, support::SocketPair& pair, F read) {
  std::string_view left(reinterpret_cast<const char*>(data + 1), size - 1);
  const size_t piece = data[0] == 0 ? size : data[0];
  for (bool isOpen = true; isOpen && !left.empty(); pair.take()) {
    const ssize_t n = pair.put(left.substr(0, piece));
    if (n > 0) left.remove_prefix(static_cast<size_t>(n));
    isOpen = read();
  }
  pair.peer.reset();
}
