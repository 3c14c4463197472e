#pragma once

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <string_view>

#include "plat/Exception.h"
#include "plat/FileDescriptor.h"

namespace support {

// Two sockets that do not block; put() and take() are the peer's.
struct SocketPair {
  SocketPair() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) < 0) {
      throw plat::SystemException("socketpair", errno);
    }
    ours.reset(ends[0]);
    peer.reset(ends[1]);
  }
  // As many of the bytes as go in at once, or -1.
  ssize_t put(std::string_view bytes) const {
    return send(peer.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
  }
  // What can be read now.
  std::string take(size_t atMost = 1 << 24) const {
    std::string all;
    char some[65536];
    ssize_t n;
    while ((n = read(peer.get(), some, std::min(sizeof some, atMost - all.size()))) > 0) {
      all.append(some, static_cast<size_t>(n));
    }
    return all;
  }

  plat::FileDescriptor ours, peer;
};

}  // namespace support
