#include "host/AgentConnection.h"

#include <sys/socket.h>

#include <algorithm>
#include <iterator>

#include "plat/Deadline.h"
#include "plat/Exception.h"
#include "plat/shm/openSharedMem.h"
#include "rdr/SharedMemDescriptor.h"

namespace host {

namespace {

// What a text of the agent may hold at most; it cuts its own earlier.
constexpr size_t kMaxText = 65536;
constexpr const char* kCutText = "serverCutText";
constexpr uint32_t kMaxCursorBytes = 64 * 1024 * 1024;

// Log lines that say how changes are found.
constexpr std::string_view kPolling = "Using polling";
constexpr std::string_view kDamage = "Using damage extension";

// A request to an agent that has gone is not the caller's fault: process() tells of the end.
template <typename F>
void attempt(F write) {
  try {
    write();
  } catch (const plat::Exception&) {
  }
}

rfb::Rect readRect(rdr::InStream& in) {
  const int32_t x1 = in.readS32(), y1 = in.readS32(), x2 = in.readS32(), y2 = in.readS32();
  return {x1, y1, x2, y2};
}

}  // namespace

const AgentConnection::Message AgentConnection::kMessages[] = {
    {"init", &AgentConnection::readInit},
    {"initRectAndPf", &AgentConnection::readInitRectAndPf},
    {"setPixelBuffer", &AgentConnection::readPixelBuffer},
    {"setColourMapEntries", &AgentConnection::readColourMap},
    {"fbUpdate", &AgentConnection::readUpdate},
    {"setCursorImage", &AgentConnection::readCursorImage},
    {"setCursorPos", &AgentConnection::readCursorPos},
    {"bell", &AgentConnection::readBell},
    {"localInput", &AgentConnection::readLocalInput},
    {"closeClients", &AgentConnection::readCloseClients},
    {"desktopFailure", &AgentConnection::readDesktopFailure},
    {"captureBroken", &AgentConnection::readCaptureBroken},
    {"desktopUidChanged", &AgentConnection::readDesktopUid},
    {"displayModesSupported", &AgentConnection::readModesSupported},
    {"displayModesUpdated", &AgentConnection::readModesUpdated},
    {"monitorsUpdated", &AgentConnection::readMonitors},
    {"logMsg", &AgentConnection::readLogLine},
    {"badMsg", &AgentConnection::readBadMsg},
};

AgentConnection::AgentConnection(plat::FileDescriptor channel, AgentListener* listener)
    : listener_(listener ? listener : &nobody_), ipc_("Agent") {
  auto endpoint = std::make_unique<ManualIo>(std::move(channel));
  endpoint_ = endpoint.get();
  ipc_.setCallback(this);
  for (const Message& message : kMessages) registration_.add(message.name);
  registration_.add(kCutText);
  ipc_.attach(std::move(endpoint));
}

AgentConnection::~AgentConnection() {
  ipc_.setCallback(nullptr);
  close();
}

void AgentConnection::close() {
  endpoint_ = nullptr;
  ipc_.detach();
}

bool AgentConnection::finish(int timeoutMs) {
  if (!isConnected()) return true;
  attempt([&] { ipc_.flush(timeoutMs); });
  shutdown(fd(), SHUT_WR);
  processUntil([this] { return !isConnected(); }, timeoutMs);
  const bool gone = !isConnected();
  close();
  return gone;
}

void AgentConnection::process(int timeoutMs) {
  if (endpoint_) endpoint_->turn(timeoutMs);
}

bool AgentConnection::processUntil(const std::function<bool()>& done, int timeoutMs) {
  const plat::Deadline deadline(timeoutMs);
  while (!done()) {
    if (!isConnected()) return false;
    const int left = deadline.msLeft();
    if (left == 0) return false;
    process(left);
  }
  return true;
}

void AgentConnection::start() {
  attempt([&] {
    ipc_.writeMsg("start");
    ipc_.endMsg();
  });
}

void AgentConnection::stop() {
  attempt([&] {
    ipc_.writeMsg("stop");
    ipc_.endMsg();
  });
}

void AgentConnection::fbUpdateRequest() {
  attempt([&] {
    ipc_.writeMsg("fbUpdateRequest");
    ipc_.endMsg();
  });
}

void AgentConnection::keyEvent(uint32_t keysym, bool down) {
  attempt([&] {
    rdr::OutStream& out = ipc_.writeMsg("keyEvent");
    out.writeU32(keysym);
    out.writeU8(down);
    ipc_.endMsg();
  });
}

void AgentConnection::pointerEvent(int32_t x, int32_t y, uint32_t buttonMask, bool relative) {
  attempt([&] {
    rdr::OutStream& out = ipc_.writeMsg("pointerEvent");
    out.writeS32(x);
    out.writeS32(y);
    out.writeU32(buttonMask);
    out.writeU8(relative);
    ipc_.endMsg();
  });
}

void AgentConnection::clientCutText(std::string_view text) {
  attempt([&] {
    rdr::OutStream& out = ipc_.writeMsg("clientCutText");
    out.writeS32(static_cast<int32_t>(text.size()));
    out.writeBytes(text.data(), text.size());
    ipc_.endMsg();
  });
}

void AgentConnection::setParams(const std::vector<Parameter>& parameters) {
  attempt([&] {
    rdr::OutStream& out = ipc_.writeMsg("setParams");
    for (const Parameter& parameter : parameters) {
      out.writeShortString(parameter.name);
      out.writeString(parameter.value);
      out.writeU32(parameter.priority);
    }
    ipc_.endMsg();
  });
}

void AgentConnection::setDisplayMode(uint32_t width, uint32_t height) {
  attempt([&] {
    rdr::OutStream& out = ipc_.writeMsg("setDisplayMode");
    out.writeU32(width);
    out.writeU32(height);
    ipc_.endMsg();
  });
}

void AgentConnection::setMonitor(std::string_view selection) {
  attempt([&] {
    ipc_.writeMsg("setMonitor").writeString(selection);
    ipc_.endMsg();
  });
}

void AgentConnection::setXServerOwner(uint64_t userId, uint64_t groupId) {
  attempt([&] {
    rdr::OutStream& out = ipc_.writeMsg("SetXServerOwner");
    out.writeU64(userId);
    out.writeU64(groupId);
    ipc_.endMsg();
  });
}

void AgentConnection::setLogLevel(uint32_t level, std::string_view source) {
  attempt([&] {
    rdr::OutStream& out = ipc_.writeMsg("setLogLevel");
    out.writeU32(level);
    if (!source.empty()) out.writeShortString(source);
    ipc_.endMsg();
  });
}

const uint8_t* AgentConnection::pixels() const {
  return segment_ ? segment_->data() : nullptr;
}

bool AgentConnection::readMsg(const char* messageName, rdr::InStream& in, io::MsgIpc&) {
  const std::string_view name = messageName;
  if (name == kCutText) return readCutText(in);
  const auto* message = std::find_if(std::begin(kMessages), std::end(kMessages),
                                     [&](const Message& m) { return name == m.name; });
  (this->*message->read)(in);
  return true;
}

void AgentConnection::channelClosed(io::MsgIpc&) {
  endpoint_ = nullptr;
  listener_->disconnected({});
}

void AgentConnection::readInit(rdr::InStream& in) {
  listener_->init(in.readU32());
}

void AgentConnection::readInitRectAndPf(rdr::InStream& in) {
  const rfb::Rect rect = readRect(in);
  listener_->initRectAndPf(rect, rfb::PixelFormat::read(in));
}

void AgentConnection::readPixelBuffer(rdr::InStream& in) {
  PixelBufferInfo info;
  info.segment = buffer_.segment;
  info.format = rfb::PixelFormat::read(in);
  info.rect = readRect(in);
  info.stride = in.readU32();
  info.segmentChanged = in.readU8() != 0;
  if (info.segmentChanged) {
    info.segment = rdr::readSharedMemDescriptor(in);
    segment_.reset();
    segmentError_.clear();
    try {
      if (mapsSegments_) segment_ = plat::openSharedMem(info.segment);
    } catch (const plat::Exception& e) {
      segmentError_ = e.text();
    }
  }
  // Products of what an agent says may be more than 64 bits hold.
  const int32_t width = info.rect.width(), height = info.rect.height();
  const uint64_t rowBytes =
      static_cast<uint64_t>(info.stride) * static_cast<uint64_t>(info.format.bytesPerPixel());
  if (width <= 0 || height <= 0 || info.stride < static_cast<uint32_t>(width) ||
      static_cast<uint64_t>(height) > info.segment.size / rowBytes) {
    segment_.reset();
    segmentError_ = "the segment is smaller than the buffer";
  }
  buffer_ = info;
  listener_->setPixelBuffer(buffer_);
}

void AgentConnection::readColourMap(rdr::InStream& in) {
  const size_t first = in.readU8();
  const size_t count = static_cast<size_t>(in.readU8()) + 1;
  std::vector<ColourMapEntry> entries(count);
  for (ColourMapEntry& entry : entries) {
    entry.red = in.readU8();
    entry.green = in.readU8();
    entry.blue = in.readU8();
  }
  colourMap_.resize(256);
  for (size_t i = 0; i < count && first + i < colourMap_.size(); ++i) {
    colourMap_[first + i] = entries[i];
  }
  listener_->setColourMapEntries(static_cast<int>(first), entries);
}

void AgentConnection::readUpdate(rdr::InStream& in) {
  UpdateMessage update;
  update.copied.read(in);
  update.dx = in.readS32();
  update.dy = in.readS32();
  update.changed.read(in);
  listener_->fbUpdate(update);
}

void AgentConnection::readCursorImage(rdr::InStream& in) {
  CursorImage cursor;
  cursor.visible = in.readU8() != 0;
  if (cursor.visible) {
    cursor.format = rfb::PixelFormat::read(in);
    cursor.rect = readRect(in);
    cursor.threshold = in.readS32();
    const uint32_t length = in.readU32();
    const uint64_t expected = static_cast<uint64_t>(cursor.rect.width()) *
                              static_cast<uint64_t>(cursor.rect.height()) *
                              static_cast<uint64_t>(cursor.format.bytesPerPixel());
    // Two negative sides have a positive product.
    if (cursor.rect.width() < 0 || cursor.rect.height() < 0 || length != expected ||
        length > kMaxCursorBytes) {
      throw plat::Exception("cursor image of %u bytes does not fit its rectangle", length);
    }
    cursor.pixels.resize(length);
    in.readBytes(cursor.pixels.data(), length);
  }
  listener_->setCursorImage(cursor);
}

void AgentConnection::readCursorPos(rdr::InStream& in) {
  const int32_t x = in.readS32();
  listener_->setCursorPos(x, in.readS32());
}

void AgentConnection::readBell(rdr::InStream&) {
  listener_->bell();
}

void AgentConnection::readLocalInput(rdr::InStream&) {
  listener_->localInput();
}

void AgentConnection::readCloseClients(rdr::InStream& in) {
  const plat::String text = in.readString(kMaxText);
  const plat::String kind = in.readShortString();
  listener_->closeClients(text.str(), kind.str(), in.readU32());
}

void AgentConnection::readDesktopFailure(rdr::InStream& in) {
  const plat::String text = in.readShortString();
  listener_->desktopFailure(text.str(), in.readShortString().str());
}

void AgentConnection::readCaptureBroken(rdr::InStream& in) {
  listener_->captureBroken(in.readU8() != 0);
}

void AgentConnection::readDesktopUid(rdr::InStream& in) {
  const uint64_t userId = in.readU64();
  listener_->desktopUidChanged(userId, in.readShortString().str());
}

void AgentConnection::readModesSupported(rdr::InStream& in) {
  listener_->displayModesSupported(in.readU8() != 0);
}

void AgentConnection::readModesUpdated(rdr::InStream&) {
  listener_->displayModesUpdated();
}

void AgentConnection::readMonitors(rdr::InStream& in) {
  MonitorsMessage message;
  message.monitors.resize(in.readU8());
  for (plat::DisplayInfo& monitor : message.monitors) monitor.read(in);
  message.parameter = in.readString(kMaxText).str();
  message.selection = in.readString(kMaxText).str();
  listener_->monitorsUpdated(message);
}

void AgentConnection::readLogLine(rdr::InStream& in) {
  LogLine line;
  line.level = in.readU32();
  line.source = in.readShortString().str();
  line.text = in.readString(kMaxText).str();
  listener_->logMsg(line);
  if (line.text == kPolling || line.text == kDamage) listener_->polling(line.text == kPolling);
  if (const std::optional<Refusal> refusal = refusals_.find(line)) listener_->refused(*refusal);
}

void AgentConnection::readBadMsg(rdr::InStream& in) {
  listener_->badMsg(in.readShortString().str());
}

bool AgentConnection::readCutText(rdr::InStream& in) {
  if (!cutTextLength_) {
    cutTextLength_ = in.readU32();
    cutText_.clear();
  }
  while (cutText_.size() < *cutTextLength_) {
    const size_t got = in.check(1, *cutTextLength_ - cutText_.size(), false);
    if (got == 0) return false;
    const size_t old = cutText_.size();
    cutText_.resize(old + got);
    in.readBytes(cutText_.data() + old, got);
  }
  cutTextLength_.reset();
  const std::string text = std::move(cutText_);
  cutText_.clear();
  listener_->serverCutText(text);
  return true;
}

}  // namespace host
