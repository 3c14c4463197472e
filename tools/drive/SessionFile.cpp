#include "SessionFile.h"

#include <algorithm>
#include <array>

#include "plat/Exception.h"

namespace drive {

namespace {

using Kind = SessionRecord::Kind;

constexpr std::string_view kMagic = "ruvosession 1\n";
constexpr size_t kHeader = 2;
// More than any message or picture that is recorded has.
constexpr uint32_t kMaxRecord = 256 * 1024 * 1024;
// A record that says it is long may not be: it is read in pieces.
constexpr size_t kPiece = 1024 * 1024;

size_t frameLength(const uint8_t* header) {
  return static_cast<size_t>((header[0] & 0x7f) << 8 | header[1]);
}

// Calls back with the offset and length of each frame's payload.
template <typename F>
void forEachFrame(const std::vector<uint8_t>& frames, F callback) {
  for (size_t at = 0; at + kHeader <= frames.size();) {
    const size_t length = std::min(frameLength(&frames[at]), frames.size() - at - kHeader);
    callback(at + kHeader, length);
    at += kHeader + length;
  }
}

std::vector<uint8_t> join(const std::vector<uint8_t>& frames) {
  std::vector<uint8_t> payload;
  forEachFrame(frames, [&](size_t at, size_t length) {
    const auto begin = frames.begin() + static_cast<std::ptrdiff_t>(at);
    payload.insert(payload.end(), begin, begin + static_cast<std::ptrdiff_t>(length));
  });
  return payload;
}

void cross(std::vector<uint8_t>& payload, size_t begin) {
  std::fill(payload.begin() + static_cast<std::ptrdiff_t>(std::min(begin, payload.size())),
            payload.end(), uint8_t{'x'});
}

// Leaves out what people typed and copied; the lengths stay, and so do the frames.
void redactMessage(std::vector<uint8_t>& frames) {
  std::vector<uint8_t> payload = join(frames);
  const std::string_view name = nameOfMessage(payload);
  const size_t body = 1 + name.size();
  if (name == "keyEvent") {
    for (size_t i = 0; i < 4 && body + i < payload.size(); ++i) {
      payload[body + i] = i == 3 ? 'x' : 0;
    }
  } else if (name == "clientCutText" || name == "serverCutText") {
    cross(payload, body + 4);
  } else if (name == "logMsg" && payload.size() > body + 4) {
    const size_t text = body + 4 + 1 + payload[body + 4] + 4;
    static constexpr std::string_view kSymbol = "keysym";
    if (std::search(payload.begin(), payload.end(), kSymbol.begin(), kSymbol.end()) !=
        payload.end()) {
      cross(payload, text);
    }
  }
  size_t taken = 0;
  forEachFrame(frames, [&](size_t at, size_t length) {
    std::copy_n(payload.begin() + static_cast<std::ptrdiff_t>(taken), length,
                frames.begin() + static_cast<std::ptrdiff_t>(at));
    taken += length;
  });
}

}  // namespace

std::vector<uint8_t> SessionRecord::payload() const {
  return join(bytes);
}

std::string_view nameOfMessage(const std::vector<uint8_t>& payload) {
  if (payload.empty() || payload[0] >= payload.size()) return {};
  return {reinterpret_cast<const char*>(payload.data()) + 1, payload[0]};
}

std::vector<uint8_t> MessageCutter::take() {
  while (scanned_ + kHeader <= held_.size()) {
    const uint8_t* header = &held_[scanned_];
    const size_t end = scanned_ + kHeader + frameLength(header);
    if (end > held_.size()) break;
    const bool last = (header[0] & 0x80) != 0;
    scanned_ = end;
    if (!last) continue;
    scanned_ = 0;
    const auto cut = held_.begin() + static_cast<std::ptrdiff_t>(end);
    std::vector<uint8_t> message(held_.begin(), cut);
    held_.erase(held_.begin(), cut);
    return message;
  }
  return {};
}

SessionWriter::SessionWriter(const std::string& path, bool redact) : redact_(redact), out_(path) {
  out_.writeBytes(kMagic.data(), kMagic.size());
}

void SessionWriter::note(std::string_view text) {
  write(Kind::kNote, {text.begin(), text.end()});
}

void SessionWriter::passed(Kind from, const uint8_t* bytes, size_t length) {
  cutter(from).add(bytes, length);
  for (;;) {
    std::vector<uint8_t> message = cutter(from).take();
    if (message.empty()) return;
    if (redact_) redactMessage(message);
    write(from, message);
  }
}

void SessionWriter::pixels(const rfb::Rect& rect, const std::vector<uint8_t>& png) {
  std::vector<uint8_t> bytes;
  for (const int32_t value : {rect.tl.x, rect.tl.y, rect.br.x, rect.br.y}) {
    for (int shift = 24; shift >= 0; shift -= 8) {
      bytes.push_back(static_cast<uint8_t>(static_cast<uint32_t>(value) >> shift));
    }
  }
  bytes.insert(bytes.end(), png.begin(), png.end());
  write(Kind::kPixels, bytes);
}

void SessionWriter::commit() {
  for (const Kind from : {Kind::kAgent, Kind::kServer}) {
    const std::vector<uint8_t> rest = cutter(from).takeRest();
    if (!rest.empty() && !redact_) write(from, rest);
  }
  out_.commit();
}

void SessionWriter::write(Kind kind, const std::vector<uint8_t>& bytes) {
  const auto passed = std::chrono::steady_clock::now() - begin_;
  out_.writeU64(
      static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(passed).count()));
  out_.writeU8(static_cast<uint8_t>(kind));
  out_.writeU32(static_cast<uint32_t>(bytes.size()));
  out_.writeBytes(bytes.data(), bytes.size());
}

SessionReader::SessionReader(const std::string& path) : in_(path) {
  std::array<char, kMagic.size()> magic;
  if (in_.atEnd() || in_.check(1, magic.size()) < magic.size()) {
    throw plat::Exception("not a recorded session");
  }
  in_.readBytes(magic.data(), magic.size());
  if (std::string_view(magic.data(), magic.size()) != kMagic) {
    throw plat::Exception("not a recorded session");
  }
}

bool SessionReader::read(SessionRecord& record) {
  if (in_.atEnd()) return false;
  record.microseconds = in_.readU64();
  const uint8_t kind = in_.readU8();
  const uint32_t length = in_.readU32();
  if (kind > static_cast<uint8_t>(Kind::kPixels) || length > kMaxRecord) {
    throw plat::Exception("the recorded session is damaged");
  }
  record.kind = static_cast<Kind>(kind);
  record.bytes.clear();
  while (record.bytes.size() < length) {
    const size_t had = record.bytes.size();
    record.bytes.resize(std::min<size_t>(length, had + kPiece));
    in_.readBytes(record.bytes.data() + had, record.bytes.size() - had);
  }
  return true;
}

}  // namespace drive
