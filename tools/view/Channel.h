#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace view {

// A page's WebSocket as those see it who have something to send.
class Channel {
 public:
  virtual ~Channel() = default;

  virtual void sendText(std::string json) = 0;
  virtual void sendBinary(std::vector<uint8_t> message) = 0;
  // Bytes that the socket has not taken yet.
  virtual size_t queuedBytes() const = 0;
  // Ends it with a code of RFC 6455; what is queued goes first. Harmless when it has ended.
  virtual void close(uint16_t code, const std::string& reason) = 0;
};

}  // namespace view
