#include "svr/SServerAgent.h"

#include <cstring>
#include <iterator>
#include <string>
#include <utility>

#include "io/LogDestIpc.h"
#include "plat/Assert.h"
#include "plat/Exception.h"
#include "plat/Utf8.h"
#include "plat/config/BoolParameter.h"
#include "plat/config/Configuration.h"
#include "plat/log/LogSrc.h"
#include "plat/shm/SharedMem.h"
#include "rdr/SharedMemDescriptor.h"
#include "rfb/CursorWithAlpha.h"
#include "rfb/PixelBuffer.h"
#include "rfb/Region.h"
#include "rfb/UpdateTracker.h"
#include "svr/ParamsReader.h"
#include "svr/SDesktop.h"
#include "svr/SendMessage.h"

namespace svr {

namespace {

plat::LogSrc vlog("SServerAgent");

plat::BoolParameter debugUpdates("_AgentDebugUpdates", "", false);

constexpr size_t kMaxErrorText = 1024;

void writeRect(rdr::OutStream& out, const rfb::Rect& r) {
  for (const int32_t edge : {r.tl.x, r.tl.y, r.br.x, r.br.y}) out.writeS32(edge);
}

void writeColours(rdr::OutStream& out, const rfb::ColourMap& map, int first, int count) {
  out.writeU8(static_cast<uint8_t>(first));
  out.writeU8(static_cast<uint8_t>(count - 1));
  for (int i = first; i < first + count; ++i) {
    int red = 0, green = 0, blue = 0;
    map.lookup(i, &red, &green, &blue);
    for (const int channel : {red, green, blue}) out.writeU8(static_cast<uint8_t>(channel));
  }
}

void writeCursor(rdr::OutStream& out, rfb::CursorWithAlpha& image) {
  out.writeU8(1);
  image.getPF().write(out);
  const rfb::Rect& r = image.getRect();
  writeRect(out, r);
  out.writeS32(image.threshold());
  const size_t rowBytes = static_cast<size_t>(r.width() * image.getPF().bytesPerPixel());
  out.writeU32(static_cast<uint32_t>(rowBytes * static_cast<size_t>(r.height())));
  for (int32_t y = r.tl.y; y < r.br.y && rowBytes; ++y) {
    out.writeBytes(image.getPixelsR(rfb::Rect(r.tl.x, y, r.br.x, y + 1), nullptr), rowBytes);
  }
}

}  // namespace

const SServerAgent::MessageStep SServerAgent::kMessages[] = {
    {"start", &SServerAgent::readStart},
    {"stop", &SServerAgent::readStop},
    {"fbUpdateRequest", &SServerAgent::readUpdateRequest},
    {"pointerEvent", &SServerAgent::readPointerEvent},
    {"keyEvent", &SServerAgent::readKeyEvent},
    {"clientCutText", &SServerAgent::readCutTextLength},
    {"setParams", &SServerAgent::readParams},
};

plat::LogSrc& SServerAgent::log() {
  return vlog;
}

SServerAgent::SServerAgent(Callback* callback, SDesktop* desktop, io::LogDestIpc* logDest)
    : callback_(callback), channel_("Server"), logDest_(logDest), desktop_(desktop) {
  channel_.setCallback(this);
  for (const MessageStep& message : kMessages) channel_.addReader(message.name, this);
}

SServerAgent::~SServerAgent() {
  stopDesktop();
  if (logDest_) logDest_->detach();
  for (const MessageStep& message : kMessages) channel_.removeReader(message.name);
  channel_.setCallback(nullptr);
  channel_.detach();
}

void SServerAgent::accept(std::unique_ptr<io::Io> io) {
  if (logDest_) logDest_->detach();
  channel_.detach();
  abandonMessage();
  stopDesktop();
  updateRequested_ = false;
  held_ = Held();
  channel_.attach(std::move(io));

  // Nothing, not even a log line, comes before the greeting.
  sendMessage(channel_, vlog, "init", [](rdr::OutStream& out) { out.writeU32(kMagic); });
  try {
    const rfb::Rect rect = desktop_->getRect();
    rfb::PixelFormat format(32, 24, false, true, 255, 255, 255, 16, 8, 0);
    desktop_->getPixelFormat(format);
    sendMessage(channel_, vlog, "initRectAndPf", [&](rdr::OutStream& out) {
      writeRect(out, rect);
      format.write(out);
    });
  } catch (const plat::Exception& e) {
    vlog.info("%s", e.text());
  }
  if (logDest_) logDest_->attach(channel_);
}

void SServerAgent::channelClosed(io::MsgIpc&) {
  abandonMessage();
  if (logDest_) logDest_->detach();
  stopDesktop();
  updateRequested_ = false;
  held_ = Held();
  callback_->serverDisconnected();
}

void SServerAgent::channelUnblocked(io::MsgIpc&) {
  Held held = std::exchange(held_, Held());
  // One of these may find the channel blocked again.
  if (held.cutText) serverCutText(held.cutText->data(), held.cutText->size());
  if (held.cursor) sendCursor(std::move(*held.cursor));
  if (held.cursorPos) setCursorPos(*held.cursorPos);
  if (held.localInput) localInput();
  if (held.bell) bell();
}

void SServerAgent::stopDesktop() {
  if (!desktopStarted_) return;
  vlog.info("Stopping desktop");
  desktop_->stop();
  desktopStarted_ = false;
  updateRequested_ = false;
  held_ = Held();
  callback_->desktopStarted(false);
}

// Messages from the server

bool SServerAgent::readMsg(const char* name, rdr::InStream& in, io::MsgIpc&) {
  if (machine_.isIdle()) {
    for (const MessageStep& message : kMessages) {
      if (strcmp(name, message.name) == 0) machine_.setStateFn(message.step);
    }
  }
  in_ = &in;
  try {
    return machine_.run(*this);
  } catch (...) {
    abandonMessage();
    throw;
  }
}

void SServerAgent::abandonMessage() {
  machine_.clear();
  cutText_.reset();
}

bool SServerAgent::readStart() {
  machine_.clear();
  stopDesktop();
  vlog.info("Starting desktop");
  try {
    desktop_->start(*this);
  } catch (const plat::Exception& e) {
    desktopFailure(e);
    throw;
  }
  desktopStarted_ = true;
  callback_->desktopStarted(true);
  return true;
}

bool SServerAgent::readStop() {
  machine_.clear();
  stopDesktop();
  return true;
}

bool SServerAgent::readUpdateRequest() {
  machine_.clear();
  if (debugUpdates.value()) vlog.debug("fbUpdateRequest, duplicate %d", updateRequested_);
  if (updateRequested_) return true;
  updateRequested_ = true;
  desktop_->framebufferUpdateRequest();
  return true;
}

bool SServerAgent::readPointerEvent() {
  const int32_t x = in_->readS32();
  const int32_t y = in_->readS32();
  const uint32_t mask = in_->readU32();
  const bool relative = in_->readU8() != 0;
  machine_.clear();
  desktop_->pointerEvent(rfb::Point(x, y), mask, relative);
  return true;
}

bool SServerAgent::readKeyEvent() {
  const uint32_t keysym = in_->readU32();
  const bool down = in_->readU8() != 0;
  machine_.clear();
  desktop_->keyEvent(keysym, down);
  return true;
}

bool SServerAgent::readCutTextLength() {
  const int32_t len = in_->readS32();
  PLAT_ASSERT(len >= 0);
  cutText_.init(static_cast<size_t>(len));
  machine_.setStateFn(&SServerAgent::readCutText);
  return true;
}

bool SServerAgent::readCutText() {
  if (!cutText_.read(*in_)) return false;
  machine_.clear();
  desktop_->clientCutText(cutText_.data(), cutText_.size());
  cutText_.reset();
  return true;
}

bool SServerAgent::readParams() {
  ParamsReader reader(plat::Configuration::global());
  while (!channel_.atEndOfMsg()) reader.readEntry(*in_);
  machine_.clear();
  return true;
}

// Messages to the server

void SServerAgent::setPixelBuffer(rfb::PixelBuffer* buffer) {
  const plat::SharedMem* memory = buffer ? buffer->getSharedMem() : nullptr;
  Published next;
  next.buffer = buffer;
  if (memory) next.memorySerial = static_cast<int64_t>(memory->serial());
  if (buffer) {
    next.rect = buffer->getRect();
    next.format = buffer->getPF();
  }
  if (next == published_) return;
  const bool memoryChanged = next.memorySerial != published_.memorySerial;
  published_ = next;
  if (!buffer) return;

  const rfb::Rect& r = next.rect;
  vlog.info("setPixelBuffer %s pf %s",
            plat::format("%dx%d at %d,%d", r.width(), r.height(), r.tl.x, r.tl.y).c_str(),
            next.format.str().c_str());
  if (!memory) {
    vlog.error("PB is not using shared memory");
    return;
  }
  buffer->grabRegion(rfb::Region(r));
  writeSetPixelBuffer(*buffer, memoryChanged ? memory : nullptr);
  setColourMapEntries(0, 0);
}

void SServerAgent::writeSetPixelBuffer(rfb::PixelBuffer& buffer, const plat::SharedMem* newMemory) {
  int stride = 0;
  buffer.getPixelsR(buffer.getRect(), &stride);
  sendMessage(channel_, vlog, "setPixelBuffer", [&](rdr::OutStream& out) {
    buffer.getPF().write(out);
    writeRect(out, buffer.getRect());
    out.writeU32(static_cast<uint32_t>(stride));
    out.writeU8(newMemory ? 1 : 0);
    if (newMemory) rdr::writeSharedMem(out, *newMemory);
  });
}

void SServerAgent::setColourMapEntries(int firstColour, int nColours) {
  if (!published_.buffer || published_.format.trueColour) return;
  const rfb::ColourMap* map = published_.buffer->getColourMap();
  if (!map) return;
  vlog.debug("setColourMapEntries: %d,%d", firstColour, nColours);
  if (nColours == 0) nColours = map->size() - firstColour;
  // clang-format off
  PLAT_ASSERT(firstColour >= 0 && firstColour < 256 && nColours > 0 && firstColour+nColours <= 256);
  // clang-format on
  sendMessage(channel_, vlog, "setColourMapEntries",
              [&](rdr::OutStream& out) { writeColours(out, *map, firstColour, nColours); });
}

void SServerAgent::serverCutText(const char* text, size_t length) {
  if (channel_.isBlocked()) {
    held_.cutText.emplace(text, length);
    return;
  }
  held_.cutText.reset();
  sendMessage(channel_, vlog, "serverCutText",
              [&](rdr::OutStream& out) { out.writeString(std::string_view(text, length)); });
}

void SServerAgent::bell() {
  held_.bell = channel_.isBlocked();
  if (!held_.bell) sendMessage(channel_, vlog, "bell");
}

void SServerAgent::desktopFailure(const plat::Exception& error) {
  const std::string prefix = *error.kind() ? plat::format("[%s] ", error.kind()) : "";
  vlog.debug("desktopFailure: %s%s", prefix.c_str(), error.text());
  if (logDest_) logDest_->flush();
  sendMessage(channel_, vlog, "desktopFailure", [&](rdr::OutStream& out) {
    out.writeShortString(error.text());
    out.writeShortString(error.kind());
  });
}

void SServerAgent::closeClients(const plat::Exception& error) {
  sendMessage(channel_, vlog, "closeClients", [&](rdr::OutStream& out) {
    out.writeString(plat::utf8Cut(error.text(), kMaxErrorText));
    out.writeShortString(error.kind());
    out.writeU32(static_cast<uint32_t>(error.code()));
  });
}

void SServerAgent::writeUpdate(const rfb::UpdateInfo& update) {
  updateRequested_ = false;
  const bool debug = debugUpdates.value();
  if (debug) vlog.debug("fbUpdate, empty %d", update.isEmpty());
  if (!update.isEmpty()) {
    if (published_.buffer) {
      if (update.copied.isEmpty()) {
        published_.buffer->grabRegion(update.changed);
      } else {
        published_.buffer->grabRegion(update.changed | update.copied);
      }
    }
    if (debug) vlog.debug("grabbed");
  }
  sendMessage(channel_, vlog, "fbUpdate", [&](rdr::OutStream& out) {
    update.copied.write(out);
    out.writeS32(update.delta.x);
    out.writeS32(update.delta.y);
    update.changed.write(out);
  });
  if (debug) vlog.debug("sent fbUpdate");
}

void SServerAgent::setCursor(rfb::Cursor* cursor) {
  sendCursor(cursor ? cursor->toAlpha(rfb::Cursor::alphaFormat()) : nullptr);
}

void SServerAgent::sendCursor(std::unique_ptr<rfb::CursorWithAlpha> image) {
  if (channel_.isBlocked()) {
    held_.cursor = std::move(image);
    return;
  }
  held_.cursor.reset();
  sendMessage(channel_, vlog, "setCursorImage", [&](rdr::OutStream& out) {
    if (image) {
      writeCursor(out, *image);
    } else {
      out.writeU8(0);
    }
  });
}

void SServerAgent::setCursorPos(const rfb::Point& position) {
  if (channel_.isBlocked()) {
    held_.cursorPos = position;
    return;
  }
  held_.cursorPos.reset();
  sendMessage(channel_, vlog, "setCursorPos", [&](rdr::OutStream& out) {
    out.writeS32(position.x);
    out.writeS32(position.y);
  });
}

void SServerAgent::localInput() {
  held_.localInput = channel_.isBlocked();
  if (!held_.localInput) sendMessage(channel_, vlog, "localInput");
}

}  // namespace svr
