// What an agent says to its server. It arrives in pieces of as many bytes as the first byte tells.

#include "host/AgentConnection.h"

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>

#include "Check.h"
#include "host/Transcript.h"
#include "plat/log/LogManager.h"
#include "support/SocketPair.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  plat::LogManager::instance().setLogSpec("");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  support::SocketPair pair;
  host::Transcript seen(host::Transcript::Keep::kLast);
  host::AgentConnection connection(std::move(pair.ours), &seen);
  connection.setMapsSegments(false);
  const auto read = [&] {
    // More than a message may be held by then.
    for (int i = 0; i < 3 && connection.isConnected(); ++i) connection.process(0);
    while (connection.isConnected() && connection.msUntilNext() == 0) connection.process(0);
    return connection.isConnected();
  };
  std::string_view left(reinterpret_cast<const char*>(data + 1), size - 1);
  const size_t piece = data[0] == 0 ? size : data[0];
  for (bool isOpen = true; isOpen && !left.empty(); pair.take()) {
    const ssize_t n = pair.put(left.substr(0, piece));
    if (n > 0) left.remove_prefix(static_cast<size_t>(n));
    isOpen = read();
  }
  // However the input went, the end of the stream is noticed.
  pair.peer.reset();
  check(!read());
  return 0;
}
