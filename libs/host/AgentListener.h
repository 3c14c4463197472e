#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/LogLine.h"
#include "host/Refusal.h"
#include "plat/shm/SharedMem.h"
#include "rdr/DisplayInfo.h"
#include "rfb/PixelFormat.h"
#include "rfb/Rect.h"
#include "rfb/Region.h"

namespace host {

// A published framebuffer.
struct PixelBufferInfo {
  rfb::PixelFormat format;
  rfb::Rect rect;
  uint32_t stride = 0;  // pixels
  bool segmentChanged = false;
  // Valid when the segment changed, else as last described.
  plat::SharedMemDescriptor segment;
};

struct ColourMapEntry {
  uint8_t red = 0, green = 0, blue = 0;
};

struct UpdateMessage {
  rfb::Region copied;
  int32_t dx = 0, dy = 0;
  rfb::Region changed;
};

// A cursor image; its hotspot is at 0,0 of the rectangle. Pixels are premultiplied.
struct CursorImage {
  bool visible = false;
  rfb::PixelFormat format;
  rfb::Rect rect;
  int32_t threshold = 0;
  std::vector<uint8_t> pixels;
};

struct MonitorsMessage {
  std::vector<plat::DisplayInfo> monitors;
  std::string parameter;  // value of the agent's `Monitor` parameter
  std::string selection;  // text whose rectangle is being captured
};

// What an agent tells its server. Every call comes from AgentConnection::process(). The defaults do
// nothing.
class AgentListener {
 public:
  virtual ~AgentListener() = default;

  virtual void init(uint32_t /*magic*/) {}
  virtual void initRectAndPf(const rfb::Rect&, const rfb::PixelFormat&) {}
  virtual void setPixelBuffer(const PixelBufferInfo&) {}
  virtual void setColourMapEntries(int /*first*/, const std::vector<ColourMapEntry>&) {}
  virtual void fbUpdate(const UpdateMessage&) {}
  virtual void setCursorImage(const CursorImage&) {}
  virtual void setCursorPos(int32_t /*x*/, int32_t /*y*/) {}
  virtual void bell() {}
  virtual void localInput() {}
  virtual void closeClients(const std::string& /*text*/, const std::string& /*kind*/,
                            uint32_t /*code*/) {}
  virtual void serverCutText(const std::string& /*text*/) {}
  virtual void desktopFailure(const std::string& /*text*/, const std::string& /*kind*/) {}
  virtual void captureBroken(bool /*broken*/) {}
  virtual void desktopUidChanged(uint64_t /*userId*/, const std::string& /*xauthority*/) {}
  virtual void displayModesSupported(bool /*supported*/) {}
  virtual void displayModesUpdated() {}
  virtual void monitorsUpdated(const MonitorsMessage&) {}
  virtual void logMsg(const LogLine&) {}
  // The agent finds changes by comparing pixels from now on, or is told of them by the X server;
  // comes after the log line that says so, of level 30.
  virtual void polling(bool /*on*/) {}
  // The agent did not do what it was told; comes after the log line that says so.
  virtual void refused(const Refusal&) {}
  // The agent did not know a message of ours.
  virtual void badMsg(const std::string& /*name*/) {}
  // The channel is closed; nothing comes after this. Empty text at an orderly end.
  virtual void disconnected(const std::string& /*text*/) {}
};

}  // namespace host
