#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

#include "io/MsgIpc.h"
#include "plat/String.h"
#include "rfb/Rect.h"

namespace plat {
class Exception;
class LogSrc;
class DisplayInfo;
class SharedMem;
}  // namespace plat
namespace rfb {
class ColourMap;
class CursorWithAlpha;
class PixelBuffer;
class PixelFormat;
struct UpdateInfo;
}  // namespace rfb

namespace svr {

// Writes the agent's messages to the server, each by a function of its name; their bodies stand
// nowhere else (only the transport's own "badMsg" and "logMsg" are written by the transport). A
// message that the channel cannot take is logged and otherwise ignored: nobody who reports
// something stops because there is no one to hear it.
class OutgoingMessages {
 public:
  // The channel is not owned.
  explicit OutgoingMessages(io::MsgIpc& channel) : channel_(channel) {}
  OutgoingMessages(const OutgoingMessages&) = delete;
  OutgoingMessages& operator=(const OutgoingMessages&) = delete;

  void init(uint32_t magic);
  void initRectAndPf(const rfb::Rect& rect, const rfb::PixelFormat& format);

  // newMemory is null while the buffer's memory is what the server knows already.
  void setPixelBuffer(rfb::PixelBuffer& buffer, const plat::SharedMem* newMemory);
  // count is 1 to 256.
  void setColourMapEntries(const rfb::ColourMap& map, int first, int count);
  void fbUpdate(const rfb::UpdateInfo& update);
  // Null: there is no cursor.
  void setCursorImage(rfb::CursorWithAlpha* image);
  void setCursorPos(const rfb::Point& position);
  void bell();
  void localInput();
  // UTF-8, without terminator.
  void serverCutText(std::string_view text);

  void closeClients(const plat::Exception& error);
  void desktopFailure(const plat::Exception& error);
  void captureBroken(bool broken);

  // parameter: the value of the parameter `Monitor`. inForce: the text whose rectangle is captured,
  // null when everything is.
  void monitorsUpdated(const std::vector<plat::DisplayInfo>& monitors,
                       const plat::String& parameter, const plat::String& inForce);
  void displayModesSupported(bool supported);
  void displayModesUpdated();
  void desktopUidChanged(uid_t userId, const std::string& xauthority);

 private:
  template <typename Body>
  void send(plat::LogSrc& log, const char* name, Body body);
  void send(plat::LogSrc& log, const char* name);

  io::MsgIpc& channel_;
};

}  // namespace svr
