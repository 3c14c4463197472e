// What an agent says to its server, in pieces of as many bytes as the first byte tells.

#include "host/AgentConnection.h"

#include <sys/socket.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "host/Transcript.h"
#include "plat/log/LogManager.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  plat::LogManager::instance().setLogSpec("");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const size_t piece = data[0] == 0 ? size : data[0];
  ++data;
  --size;

  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) < 0) abort();
  plat::FileDescriptor agent(ends[1]);
  host::Transcript seen(host::Transcript::Keep::kLast);
  host::AgentConnection connection(plat::FileDescriptor(ends[0]), &seen);
  connection.setMapsSegments(false);
  const auto read = [&] {
    // More than a message may be held by then.
    for (int i = 0; i < 3 && connection.isConnected(); ++i) connection.process(0);
    while (connection.isConnected() && connection.msUntilNext() == 0) connection.process(0);
  };
  while (size > 0 && connection.isConnected()) {
    const ssize_t n = send(agent.get(), data, std::min(piece, size), MSG_NOSIGNAL);
    if (n > 0) {
      data += n;
      size -= static_cast<size_t>(n);
    }
    read();
    uint8_t some[4096];
    while (recv(agent.get(), some, sizeof some, 0) > 0) {
    }
  }
  agent.reset();
  read();
  if (connection.isConnected()) abort();
  return 0;
}
