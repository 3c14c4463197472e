// What an agent says to its server.

#include "host/AgentConnection.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "Deliveries.h"
#include "host/Transcript.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  Deliveries deliveries(data, size);
  host::Transcript seen(host::Transcript::Keep::kLast);
  host::AgentConnection connection(deliveries.takeEnd(), &seen);
  connection.setMapsSegments(false);
  const auto read = [&] {
    // More than a message may be held by then.
    for (int i = 0; i < 3 && connection.isConnected(); ++i) connection.process(0);
    while (connection.isConnected() && connection.msUntilNext() == 0) connection.process(0);
    return connection.isConnected();
  };
  deliveries.deliver(read);
  deliveries.hangUp();
  if (read()) abort();
  return 0;
}
