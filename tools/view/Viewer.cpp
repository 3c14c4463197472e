#include "Viewer.h"

#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "Clock.h"
#include "Log.h"

namespace view {

namespace {

using nlohmann::json;

// Frames that a page may have got and not drawn: one is drawn while the next is under way, unless
// each takes so long that this makes the picture old. What small frames take as well is the way
// there and back, which is no reason to let it lie idle.
constexpr size_t kMaxUndrawn = 2;
constexpr int64_t kSlowFrameMs = 80;
constexpr size_t kSmallFrameBytes = 32 << 10;
// Beyond these the socket is behind, and gets nothing more, or nothing that can be done without.
constexpr size_t kBehindBytes = 256 << 10;
constexpr size_t kSlowBytes = 1 << 20;
constexpr size_t kMessageBytes = 512 << 10;

// Of JPEG. What rests comes without loss soon after, so that a film may look like a film.
constexpr int kLeastQuality = 35, kFirstQuality = 65, kMostQuality = 85;
constexpr double kLeastBytesPerPixel = 0.11, kMostBytesPerPixel = 0.15;
constexpr double kFewPixels = 16384;  // too few to tell, for their headers

constexpr double kMessagesPerSecond = 2000, kMessageBurst = 4000;
constexpr double kBytesPerSecond = 2 << 20, kByteBurst = 8 << 20;
constexpr size_t kMaxKeys = 64;

constexpr uint16_t kMalformed = 4400;
constexpr uint16_t kPolicy = 1008;

// A message that is not what it should be.
struct Malformed {
  std::string why;
};

int64_t integer(const json& message, const char* name, int64_t least, int64_t most) {
  const auto found = message.find(name);
  if (found == message.end() || !found->is_number_integer()) {
    throw Malformed{std::string("no number \"") + name + "\""};
  }
  // Of what is beyond, an unsigned number could seem small.
  const bool huge = found->is_number_unsigned() && found->get<uint64_t>() > uint64_t{1} << 62;
  const auto value = huge ? INT64_MAX : found->get<int64_t>();
  if (value < least || value > most) throw Malformed{std::string("\"") + name + "\" out of range"};
  return value;
}

bool boolean(const json& message, const char* name) {
  const auto found = message.find(name);
  if (found == message.end() || !found->is_boolean()) {
    throw Malformed{std::string("no boolean \"") + name + "\""};
  }
  return found->get<bool>();
}

void put16(std::vector<uint8_t>& bytes, size_t value) {
  bytes.push_back(static_cast<uint8_t>(value));
  bytes.push_back(static_cast<uint8_t>(value >> 8));
}

void put32(std::vector<uint8_t>& bytes, size_t value) {
  put16(bytes, value & 0xffff);
  put16(bytes, value >> 16 & 0xffff);
}

const char* nameOf(Encoding encoding) {
  switch (encoding) {
    case Encoding::kSolid:
      return "solid";
    case Encoding::kCopy:
      return "copy";
    case Encoding::kJpeg:
      return "jpeg";
    case Encoding::kRaw:
      return "raw";
    case Encoding::kPng:
      break;
  }
  return "png";
}

}  // namespace

Viewer::Viewer(Callback& desktop, Channel& channel, bool viewOnly)
    : desktop_(&desktop),
      channel_(channel),
      viewOnly_(viewOnly),
      quality_(kFirstQuality),
      messageCredit_(kMessageBurst),
      byteCredit_(kByteBurst),
      creditMs_(nowMs()) {}

Viewer::~Viewer() {
  if (!desktop_) return;
  releaseAll();
  desktop_->left(*this);
}

void Viewer::tell(const json& message, bool needed) {
  if (!needed && channel_.queuedBytes() > kSlowBytes) return;
  channel_.sendText(message.dump(-1, ' ', false, json::error_handler_t::replace));
}

void Viewer::tellLine(const json& line) {
  if (line["level"].get<int64_t>() <= logLevel_) tell(line, false);
}

bool Viewer::isTooFast(size_t bytes) {
  const int64_t now = nowMs();
  const double seconds = static_cast<double>(now - creditMs_) / 1000;
  creditMs_ = now;
  messageCredit_ = std::min(kMessageBurst, messageCredit_ + seconds * kMessagesPerSecond) - 1;
  byteCredit_ =
      std::min(kByteBurst, byteCredit_ + seconds * kBytesPerSecond) - static_cast<double>(bytes);
  return messageCredit_ < 0 || byteCredit_ < 0;
}

void Viewer::reject(uint16_t code, const std::string& why) {
  rejected_ = true;
  releaseAll();
  log("closed a page: " + why);
  channel_.close(code, why);
}

void Viewer::received(const std::string& text) {
  if (rejected_ || !desktop_) return;
  if (isTooFast(text.size())) {
    reject(kPolicy, "too much at a time");
    return;
  }
  const json message = json::parse(text, nullptr, false);
  try {
    if (!message.is_object()) throw Malformed{"no JSON object"};
    const auto type = message.find("t");
    if (type == message.end() || !type->is_string()) throw Malformed{"no \"t\""};
    handle(type->get<std::string>(), message);
  } catch (const Malformed& e) {
    reject(kMalformed, e.why);
  }
}

void Viewer::handle(const std::string& type, const json& message) {
  constexpr int64_t kMax32 = INT32_MAX;
  if (type == "drawn") {
    drawn(static_cast<uint32_t>(integer(message, "frame", 0, UINT32_MAX)));
  } else if (type == "key") {
    key(message);
  } else if (type == "pointer") {
    pointer(message);
  } else if (type == "release") {
    releaseAll();
  } else if (type == "clipboard") {
    const auto text = message.find("text");
    if (text == message.end() || !text->is_string()) throw Malformed{"no string \"text\""};
    if (!viewOnly_) desktop_->offerText(text->get_ref<const std::string&>());
  } else if (type == "resize") {
    const auto width = static_cast<uint32_t>(integer(message, "width", 1, 32767));
    const auto height = static_cast<uint32_t>(integer(message, "height", 1, 32767));
    if (!viewOnly_) desktop_->resize(*this, width, height);
  } else if (type == "monitors") {
    const auto selected = message.find("selected");
    if (selected == message.end() || !selected->is_array() || selected->size() > 64) {
      throw Malformed{"no list \"selected\""};
    }
    std::string numbers;
    for (const json& each : *selected) {
      if (!each.is_number_integer()) throw Malformed{"\"selected\" is not of numbers"};
      const int64_t number = integer(json{{"number", each}}, "number", 1, 1000);
      numbers += (numbers.empty() ? "" : ",") + std::to_string(number);
    }
    if (!viewOnly_) desktop_->selectMonitors(*this, numbers);
  } else if (type == "ping") {
    tell({{"t", "pong"}, {"n", integer(message, "n", 0, kMax32)}});
  } else if (type == "logLevel") {
    const bool isFirst = logLevel_ < 0;
    logLevel_ = static_cast<int>(integer(message, "level", -1, kMax32));
    if (isFirst) desktop_->tellLines(*this);
    desktop_->logLevelsChanged();
  } else {
    throw Malformed{"unknown \"t\""};
  }
}

void Viewer::drawn(uint32_t frame) {
  const int64_t now = nowMs();
  while (!undrawn_.empty() && static_cast<int32_t>(frame - undrawn_.front().frame) >= 0) {
    const Sent& sent = undrawn_.front();
    if (sent.small) roundTrip_.saw(now - sent.ms, now);
    isSlow_ = now - sent.ms - roundTrip_.get() > kSlowFrameMs;
    undrawn_.pop_front();
  }
}

void Viewer::key(const json& message) {
  const auto symbol = static_cast<uint32_t>(integer(message, "sym", 1, 0x1fffffff));
  const bool down = boolean(message, "down");
  if (viewOnly_) return;
  if (down) {
    if (keys_.size() >= kMaxKeys && !keys_.contains(symbol)) throw Malformed{"too many keys down"};
    keys_.insert(symbol);
  } else {
    keys_.erase(symbol);
  }
  desktop_->key(symbol, down);
}

void Viewer::pointer(const json& message) {
  const auto x = static_cast<int32_t>(integer(message, "x", INT32_MIN, INT32_MAX));
  const auto y = static_cast<int32_t>(integer(message, "y", INT32_MIN, INT32_MAX));
  const auto buttons = static_cast<uint32_t>(integer(message, "buttons", 0, 255));
  if (viewOnly_) return;
  x_ = x;
  y_ = y;
  buttons_ = buttons;
  desktop_->pointer(*this, x, y, buttons);
}

void Viewer::releaseAll() {
  if (!desktop_) return;
  for (const uint32_t symbol : std::exchange(keys_, {})) desktop_->key(symbol, false);
  if (std::exchange(buttons_, 0) != 0) desktop_->pointer(*this, x_, y_, 0);
}

void Viewer::setFrame(const Frame* frame) {
  replica_.reset();
  if (!frame) return;
  tell({{"t", "size"}, {"width", frame->width()}, {"height", frame->height()}});
  replica_.emplace(*frame);
}

void Viewer::changed(const Rect& area) {
  if (replica_) replica_->changed(area);
}

bool Viewer::isReady() const {
  return replica_ && undrawn_.size() < (isSlow_ ? 1 : kMaxUndrawn) &&
         channel_.queuedBytes() < kBehindBytes && !rejected_;
}

void Viewer::adaptQuality(const std::vector<Piece>& pieces) {
  double bytes = 0, pixels = 0;
  for (const Piece& piece : pieces) {
    if (piece.encoding != Encoding::kJpeg) continue;
    bytes += static_cast<double>(piece.data.size());
    pixels += static_cast<double>(piece.rect.width()) * piece.rect.height();
  }
  if (pixels < kFewPixels) return;
  if (bytes > kMostBytesPerPixel * pixels) {
    quality_ = std::max(quality_ - 4, kLeastQuality);
  } else if (bytes < kLeastBytesPerPixel * pixels) {
    quality_ = std::min(quality_ + 1, kMostQuality);
  }
}

int Viewer::msUntilRest(int64_t now) const {
  return isReady() ? replica_->msUntilRest(now) : -1;
}

void Viewer::sendFrame(Workers& workers, bool moving, int64_t now) {
  if (!isReady() || !replica_->isBehind(now)) return;
  const std::vector<Piece> pieces = replica_->next(workers, quality_, moving, now);
  if (pieces.empty()) return;
  adaptQuality(pieces);
  ++frameNumber_;
  const uint64_t bytesBefore = bytes_;
  for (size_t first = 0; first < pieces.size();) {
    std::vector<uint8_t> message(16);
    size_t last = first;
    while (last < pieces.size() && last - first < 0xffff && message.size() < kMessageBytes) {
      const Piece& piece = pieces[last++];
      put16(message, static_cast<size_t>(piece.rect.x1));
      put16(message, static_cast<size_t>(piece.rect.y1));
      put16(message, static_cast<size_t>(piece.rect.width()));
      put16(message, static_cast<size_t>(piece.rect.height()));
      put16(message, static_cast<size_t>(piece.encoding));
      put16(message, 0);
      put32(message, piece.data.size());
      message.insert(message.end(), piece.data.begin(), piece.data.end());
      ++encodings_[nameOf(piece.encoding)];
    }
    std::vector<uint8_t> header{1, static_cast<uint8_t>(last == pieces.size())};
    put16(header, last - first);
    put32(header, frameNumber_);
    put32(header, static_cast<uint32_t>(now));
    put32(header, 0);
    std::memcpy(message.data(), header.data(), header.size());
    bytes_ += message.size();
    channel_.sendBinary(std::move(message));
    first = last;
  }
  undrawn_.push_back({frameNumber_, now, bytes_ - bytesBefore < kSmallFrameBytes});
}

void Viewer::tellStatistics(const std::string& mode) {
  if (bytes_ == bytesTold_) return;
  bytesTold_ = bytes_;
  tell({{"t", "stats"},
        {"mode", mode},
        {"encodings", encodings_},
        {"bytes", bytes_},
        {"queue", channel_.queuedBytes()}},
       false);
}

}  // namespace view
