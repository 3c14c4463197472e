#include "svr/OutgoingMessages.h"

#include "plat/Exception.h"
#include "plat/Utf8.h"
#include "plat/log/LogSrc.h"
#include "plat/shm/SharedMem.h"
#include "rdr/DisplayInfo.h"
#include "rdr/SharedMemDescriptor.h"
#include "rfb/CursorWithAlpha.h"
#include "rfb/PixelBuffer.h"
#include "rfb/UpdateTracker.h"

namespace svr {

namespace {

// Failures are logged in the name of those whose news it is.
plat::LogSrc session("SServerAgent");
plat::LogSrc application("AgentAppX11");
plat::LogSrc adaptor("AgentServerX11");
plat::LogSrc displayModes("Randr");
plat::LogSrc monitorSelect("AgentMonitorSelect");

constexpr size_t kMaxErrorText = 1024;

void writeRect(rdr::OutStream& out, const rfb::Rect& r) {
  for (const int32_t edge : {r.tl.x, r.tl.y, r.br.x, r.br.y}) out.writeS32(edge);
}

}  // namespace

// The body, a function of rdr::OutStream&, should do nothing else that can fail.
template <typename Body>
void OutgoingMessages::send(plat::LogSrc& log, const char* name, Body body) {
  try {
    body(channel_.writeMsg(name));
    channel_.endMsg();
  } catch (const plat::Exception& e) {
    log.info("%s", e.text());
  }
}

void OutgoingMessages::send(plat::LogSrc& log, const char* name) {
  send(log, name, [](rdr::OutStream&) {});
}

void OutgoingMessages::init(uint32_t magic) {
  send(session, "init", [magic](rdr::OutStream& out) { out.writeU32(magic); });
}

void OutgoingMessages::initRectAndPf(const rfb::Rect& rect, const rfb::PixelFormat& format) {
  send(session, "initRectAndPf", [&](rdr::OutStream& out) {
    writeRect(out, rect);
    format.write(out);
  });
}

void OutgoingMessages::setPixelBuffer(rfb::PixelBuffer& buffer, const plat::SharedMem* newMemory) {
  int stride = 0;
  buffer.getPixelsR(buffer.getRect(), &stride);
  send(session, "setPixelBuffer", [&](rdr::OutStream& out) {
    buffer.getPF().write(out);
    writeRect(out, buffer.getRect());
    out.writeU32(static_cast<uint32_t>(stride));
    out.writeU8(newMemory ? 1 : 0);
    if (newMemory) rdr::writeSharedMem(out, *newMemory);
  });
}

void OutgoingMessages::setColourMapEntries(const rfb::ColourMap& map, int first, int count) {
  send(session, "setColourMapEntries", [&](rdr::OutStream& out) {
    out.writeU8(static_cast<uint8_t>(first));
    out.writeU8(static_cast<uint8_t>(count - 1));
    for (int i = first; i < first + count; ++i) {
      int red = 0, green = 0, blue = 0;
      map.lookup(i, &red, &green, &blue);
      for (const int channel : {red, green, blue}) out.writeU8(static_cast<uint8_t>(channel));
    }
  });
}

void OutgoingMessages::fbUpdate(const rfb::UpdateInfo& update) {
  send(session, "fbUpdate", [&](rdr::OutStream& out) {
    update.copied.write(out);
    out.writeS32(update.delta.x);
    out.writeS32(update.delta.y);
    update.changed.write(out);
  });
}

void OutgoingMessages::setCursorImage(rfb::CursorWithAlpha* image) {
  send(session, "setCursorImage", [image](rdr::OutStream& out) {
    out.writeU8(image ? 1 : 0);
    if (!image) return;
    image->getPF().write(out);
    const rfb::Rect& r = image->getRect();
    writeRect(out, r);
    out.writeS32(image->threshold());
    const size_t rowBytes = static_cast<size_t>(r.width() * image->getPF().bytesPerPixel());
    out.writeU32(static_cast<uint32_t>(rowBytes * static_cast<size_t>(r.height())));
    for (int32_t y = r.tl.y; y < r.br.y && rowBytes; ++y) {
      out.writeBytes(image->getPixelsR(rfb::Rect(r.tl.x, y, r.br.x, y + 1), nullptr), rowBytes);
    }
  });
}

void OutgoingMessages::setCursorPos(const rfb::Point& position) {
  send(session, "setCursorPos", [&](rdr::OutStream& out) {
    out.writeS32(position.x);
    out.writeS32(position.y);
  });
}

void OutgoingMessages::bell() {
  send(session, "bell");
}

void OutgoingMessages::localInput() {
  send(session, "localInput");
}

void OutgoingMessages::serverCutText(std::string_view text) {
  send(session, "serverCutText", [text](rdr::OutStream& out) { out.writeString(text); });
}

void OutgoingMessages::closeClients(const plat::Exception& error) {
  send(session, "closeClients", [&](rdr::OutStream& out) {
    out.writeString(plat::utf8Cut(error.text(), kMaxErrorText));
    out.writeShortString(error.kind());
    out.writeU32(static_cast<uint32_t>(error.code()));
  });
}

void OutgoingMessages::desktopFailure(const plat::Exception& error) {
  send(session, "desktopFailure", [&](rdr::OutStream& out) {
    out.writeShortString(error.text());
    out.writeShortString(error.kind());
  });
}

void OutgoingMessages::captureBroken(bool broken) {
  send(application, "captureBroken",
       [broken](rdr::OutStream& out) { out.writeU8(broken ? 1 : 0); });
}

void OutgoingMessages::monitorsUpdated(const std::vector<plat::DisplayInfo>& monitors,
                                       const plat::String& parameter, const plat::String& inForce) {
  send(monitorSelect, "monitorsUpdated", [&](rdr::OutStream& out) {
    out.writeU8(static_cast<uint8_t>(monitors.size()));
    for (const plat::DisplayInfo& monitor : monitors) monitor.write(out);
    out.writeString(parameter.view());
    out.writeString(inForce.view());
  });
}

void OutgoingMessages::displayModesSupported(bool supported) {
  send(displayModes, "displayModesSupported",
       [supported](rdr::OutStream& out) { out.writeU8(supported ? 1 : 0); });
}

void OutgoingMessages::displayModesUpdated() {
  send(displayModes, "displayModesUpdated");
}

void OutgoingMessages::desktopUidChanged(uid_t userId, const std::string& xauthority) {
  send(adaptor, "desktopUidChanged", [&](rdr::OutStream& out) {
    // Together an unsigned 64-bit number.
    out.writeU32(0);
    out.writeU32(userId);
    out.writeShortString(xauthority);
  });
}

}  // namespace svr
