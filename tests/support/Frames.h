#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// The bytes of messages, put together by hand.
namespace support {

inline std::string u16(unsigned value) {
  return {static_cast<char>(value >> 8), static_cast<char>(value)};
}
inline std::string u32(uint32_t value) {
  return u16(value >> 16) + u16(value & 0xFFFF);
}
inline std::string shortString(std::string_view text) {
  return static_cast<char>(text.size()) + std::string(text);
}
inline std::string longString(std::string_view text) {
  return u32(static_cast<uint32_t>(text.size())) + std::string(text);
}

inline std::string frame(std::string_view payload, bool last) {
  return u16(static_cast<unsigned>(payload.size()) | (last ? 0x8000u : 0u)) + std::string(payload);
}

// The payload as one message, cut into frames at the given ascending offsets; an offset given twice
// makes an empty frame.
inline std::string framed(std::string_view payload, const std::vector<size_t>& cuts = {}) {
  std::string out;
  size_t from = 0;
  for (const size_t cut : cuts) {
    out += frame(payload.substr(from, cut - from), false);
    from = cut;
  }
  return out + frame(payload.substr(from), true);
}

// A message of the channel.
inline std::string message(std::string_view name, std::string_view body = {},
                           const std::vector<size_t>& cuts = {}) {
  return framed(shortString(name) + std::string(body), cuts);
}

struct Message {
  std::string name;
  std::string body;
  friend bool operator==(const Message&, const Message&) = default;
};

// The messages that the bytes begin with, which are taken off them.
inline std::vector<Message> takeMessages(std::string& bytes) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(bytes[i]); };
  std::vector<Message> messages;
  size_t done = 0;
  std::string payload;
  for (size_t at = 0; bytes.size() - at >= 2;) {
    const size_t length = (byte(at) & 0x7Fu) << 8 | byte(at + 1);
    const bool last = byte(at) & 0x80;
    if (bytes.size() - at < 2 + length) break;
    payload.append(bytes, at + 2, length);
    at += 2 + length;
    if (!last) continue;
    const size_t name = static_cast<unsigned char>(payload.at(0));
    messages.push_back({payload.substr(1, name), payload.substr(1 + name)});
    payload.clear();
    done = at;
  }
  bytes.erase(0, done);
  return messages;
}

}  // namespace support
