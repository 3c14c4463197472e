#include "svr/SServerAgent.h"

#include <cstring>
#include <string>
#include <utility>

#include "io/LogDestIpc.h"
#include "plat/Assert.h"
#include "plat/Exception.h"
#include "plat/config/BoolParameter.h"
#include "plat/config/Configuration.h"
#include "plat/log/LogSrc.h"
#include "plat/shm/SharedMem.h"
#include "rfb/CursorWithAlpha.h"
#include "rfb/PixelBuffer.h"
#include "rfb/Region.h"
#include "rfb/UpdateTracker.h"
#include "svr/ParamsReader.h"
#include "svr/SDesktop.h"

namespace svr {

namespace {

plat::LogSrc vlog("SServerAgent");

plat::BoolParameter debugUpdates("_AgentDebugUpdates", "", false);

}  // namespace

const SServerAgent::Incoming SServerAgent::kIncoming[] = {
    {"start", &SServerAgent::readStart},
    {"stop", &SServerAgent::readStop},
    {"fbUpdateRequest", &SServerAgent::readUpdateRequest},
    {"pointerEvent", &SServerAgent::readPointerEvent},
    {"keyEvent", &SServerAgent::readKeyEvent},
    {"clientCutText", &SServerAgent::readCutText},
    {"setParams", &SServerAgent::readParams},
};

SServerAgent::SServerAgent(Callback* callback, SDesktop* desktop, io::LogDestIpc* logDest)
    : callback_(callback), channel_("Server"), logDest_(logDest), desktop_(desktop) {
  channel_.setCallback(this);
  for (const Incoming& message : kIncoming) registration_.add(message.name);
}

SServerAgent::~SServerAgent() {
  stopDesktop();
  if (logDest_) logDest_->detach();
  channel_.setCallback(nullptr);
  channel_.detach();
}

void SServerAgent::accept(std::unique_ptr<io::Io> io) {
  if (logDest_) logDest_->detach();
  channel_.detach();
  stopDesktop();
  forgetConversation();
  channel_.attach(std::move(io));

  // Nothing, not even a log line, comes before the greeting.
  messages_.init(kMagic);
  try {
    const rfb::Rect rect = desktop_->getRect();
    rfb::PixelFormat format(32, 24, false, true, 255, 255, 255, 16, 8, 0);
    desktop_->getPixelFormat(format);
    messages_.initRectAndPf(rect, format);
  } catch (const plat::Exception& e) {
    vlog.info("%s", e.text());
  }
  if (logDest_) logDest_->attach(channel_);
}

void SServerAgent::channelClosed(io::MsgIpc&) {
  if (logDest_) logDest_->detach();
  stopDesktop();
  forgetConversation();
  callback_->serverDisconnected();
}

void SServerAgent::channelUnblocked(io::MsgIpc&) {
  Held held = std::exchange(held_, Held());
  // One of these may find the channel blocked again.
  if (held.cutText) serverCutText(held.cutText->data(), held.cutText->size());
  if (held.cursor) sendCursor(std::move(*held.cursor));
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

void SServerAgent::forgetConversation() {
  cutText_.reset();
  updateRequested_ = false;
  held_ = Held();
}

// Messages from the server

bool SServerAgent::readMsg(const char* name, rdr::InStream& in, io::MsgIpc&) {
  for (const Incoming& message : kIncoming) {
    if (strcmp(name, message.name) == 0) return (this->*message.read)(in);
  }
  return false;
}

bool SServerAgent::readStart(rdr::InStream&) {
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

bool SServerAgent::readStop(rdr::InStream&) {
  if (desktopStarted_) {
    stopDesktop();
  } else {
    desktop_->releaseInput();
  }
  return true;
}

bool SServerAgent::readUpdateRequest(rdr::InStream&) {
  if (debugUpdates.value()) vlog.debug("fbUpdateRequest, duplicate %d", updateRequested_);
  if (updateRequested_) return true;
  updateRequested_ = true;
  desktop_->framebufferUpdateRequest();
  return true;
}

bool SServerAgent::readPointerEvent(rdr::InStream& in) {
  const int32_t x = in.readS32();
  const int32_t y = in.readS32();
  const uint32_t mask = in.readU32();
  const bool relative = in.readU8() != 0;
  desktop_->pointerEvent(rfb::Point(x, y), mask, relative);
  return true;
}

bool SServerAgent::readKeyEvent(rdr::InStream& in) {
  const uint32_t keysym = in.readU32();
  const bool down = in.readU8() != 0;
  desktop_->keyEvent(keysym, down);
  return true;
}

// Called again when more of the text has arrived.
bool SServerAgent::readCutText(rdr::InStream& in) {
  if (!cutText_.isInProgress()) {
    const int32_t len = in.readS32();
    PLAT_ASSERT(len >= 0);
    cutText_.begin(static_cast<size_t>(len));
  }
  if (!cutText_.read(in)) return false;
  if (const size_t dropped = cutText_.dropped()) {
    vlog.error("Dropped a clipboard text of %zu bytes: longer than %zu",
               ByteReader::kMaxSize + dropped, ByteReader::kMaxSize);
    cutText_.reset();
    return true;
  }
  const std::string text = cutText_.take();
  callback_->clientCutText(text);
  return true;
}

bool SServerAgent::readParams(rdr::InStream& in) {
  ParamsReader reader(plat::Configuration::global(), vlog);
  while (!channel_.atEndOfMsg()) reader.readEntry(in);
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
  const auto announce = [&] {
    messages_.setPixelBuffer(*buffer, memoryChanged ? memory : nullptr);
    setColourMapEntries(0, 0);
  };
  try {
    buffer->grabRegion(rfb::Region(r));
  } catch (const plat::Exception&) {
    announce();
    throw;
  }
  announce();
}

void SServerAgent::setColourMapEntries(int firstColour, int nColours) {
  if (!published_.buffer || published_.format.trueColour) return;
  const rfb::ColourMap* map = published_.buffer->getColourMap();
  if (!map) return;
  vlog.debug("setColourMapEntries: %d,%d", firstColour, nColours);
  if (nColours == 0) nColours = map->size() - firstColour;
  PLAT_ASSERT_TEXT(
      firstColour >= 0 && firstColour < 256 && nColours > 0 && firstColour + nColours <= 256,
      "firstColour >= 0 && firstColour < 256 && nColours > 0 && firstColour+nColours <= 256");
  messages_.setColourMapEntries(*map, firstColour, nColours);
}

void SServerAgent::serverCutText(const char* text, size_t length) {
  if (channel_.isBlocked()) {
    held_.cutText.emplace(text, length);
    return;
  }
  held_.cutText.reset();
  messages_.serverCutText({text, length});
}

void SServerAgent::desktopFailure(const plat::Exception& error) {
  const std::string prefix = *error.kind() ? plat::format("[%s] ", error.kind()) : "";
  vlog.debug("desktopFailure: %s%s", prefix.c_str(), error.text());
  if (logDest_) logDest_->flush();
  messages_.desktopFailure(error);
}

void SServerAgent::writeUpdate(const rfb::UpdateInfo& update) {
  updateRequested_ = false;
  const bool debug = debugUpdates.value();
  if (debug) vlog.debug("fbUpdate, empty %d", update.isEmpty());
  if (!update.isEmpty()) {
    if (published_.buffer) {
      try {
        if (update.copied.isEmpty()) {
          published_.buffer->grabRegion(update.changed);
        } else {
          published_.buffer->grabRegion(update.changed | update.copied);
        }
      } catch (const plat::Exception&) {
        // Not answered yet.
        updateRequested_ = true;
        throw;
      }
    }
    if (debug) vlog.debug("grabbed");
  }
  messages_.fbUpdate(update);
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
  messages_.setCursorImage(image.get());
}

}  // namespace svr
