#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "rfb/Point.h"

namespace plat {
class DisplayInfo;
class Exception;
class String;
}  // namespace plat
namespace rfb {
class Cursor;
class PixelBuffer;
struct UpdateInfo;
}  // namespace rfb

namespace svr {

// What a desktop tells its server. That a server cannot be reached is no concern of the desktop:
// only what grabbing the published buffer throws is passed on.
class SServer {
 public:
  virtual ~SServer() = default;

  // Publishes the buffer (not owned), or, with null, tells that the last one is about to go. The
  // buffer must stay valid until another is published. It is published also when grabbing throws.
  virtual void setPixelBuffer(rfb::PixelBuffer* buffer) = 0;
  // Entries of the published buffer's colour map changed; nColours 0 means up to the map's end.
  virtual void setColourMapEntries(int firstColour, int nColours) = 0;
  // UTF-8, without terminator.
  virtual void serverCutText(const char* text, size_t length) = 0;
  virtual void bell() = 0;
  // Whether a request for an update is waiting to be answered.
  virtual bool isUpdateRequested() = 0;
  // The capture buffer was built (again): what monitors there are, the value of the parameter
  // `Monitor`, and the text whose rectangle is captured, null when everything is.
  virtual void monitorsUpdated(const std::vector<plat::DisplayInfo>& monitors,
                               const plat::String& parameter, const plat::String& inForce) = 0;
  // Whether capture misses changes.
  virtual void captureBroken(bool broken) = 0;
  // Capture does not work.
  virtual void desktopFailure(const plat::Exception& error) = 0;
  // All viewers have to be disconnected.
  virtual void closeClients(const plat::Exception& error) = 0;
  // Answers the waiting request. Throws what grabbing throws; the request then waits on.
  virtual void writeUpdate(const rfb::UpdateInfo& update) = 0;
  // Null: there is no cursor.
  virtual void setCursor(rfb::Cursor* cursor) = 0;
  virtual void setCursorPos(const rfb::Point& position) = 0;
  virtual void noOperation() {}
  // Somebody used the physical keyboard or pointer.
  virtual void localInput() = 0;
};

}  // namespace svr
