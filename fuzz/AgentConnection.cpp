// What an agent says to its server. It arrives in pieces of as many bytes as the first byte tells.

#include "host/AgentConnection.h"

#include <cstddef>
#include <cstdint>
#include <utility>

#include "Check.h"
#include "Pieces.h"
#include "host/Transcript.h"
#include "plat/log/LogManager.h"

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
  deliverPieces(data, size, pair, read);
  // However the input went, the end of the stream is noticed.
  check(!read());
  return 0;
}
