#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/AgentListener.h"
#include "host/ManualIo.h"
#include "io/MsgIpc.h"
#include "plat/FileDescriptor.h"

namespace host {

// The server's end of the channel to one agent: typed calls out, listener calls in, and the shared
// framebuffer mapped. It needs no loop of its own: whoever has one waits for what fd(), events()
// and msUntilNext() say, asked anew before each wait, and calls process(0).
class AgentConnection : private io::MsgIpc::Reader, private io::MsgIpc::Callback {
 public:
  struct Parameter {
    std::string name, value;
    uint32_t priority = 10;
  };

  // Takes the channel over. The listener is not owned and may be replaced at any time.
  AgentConnection(plat::FileDescriptor channel, AgentListener* listener);
  ~AgentConnection() override;
  AgentConnection(const AgentConnection&) = delete;
  AgentConnection& operator=(const AgentConnection&) = delete;

  void setListener(AgentListener* listener) { listener_ = listener; }
  bool isConnected() const { return endpoint_ != nullptr; }
  // Whether published framebuffers are mapped (default: on).
  void setMapsSegments(bool maps) { mapsSegments_ = maps; }
  void close();
  // Writes what is left, ends our direction and listens until the agent has gone. What was written
  // is handled for certain then. False when that takes longer than timeoutMs.
  bool finish(int timeoutMs);
  // The message channel, for messages that have no call here.
  io::MsgIpc& channel() { return ipc_; }

  // The channel's descriptor, -1 when it is closed, and the events of poll() that it waits for.
  int fd() const { return endpoint_ ? endpoint_->fd() : -1; }
  short events() const { return endpoint_ ? endpoint_->events() : short{0}; }
  // Milliseconds until process() has something to do without an event; -1 for never.
  int msUntilNext() const { return endpoint_ ? endpoint_->msUntilNext() : -1; }
  // Writes what is left behind and handles what arrives within timeoutMs (-1 without limit). A
  // signal that is handled ends the wait.
  void process(int timeoutMs);
  // Runs turns until done() says so, the channel ends or the time is over; returns done().
  bool processUntil(const std::function<bool()>& done, int timeoutMs);

  void start();
  void stop();
  void fbUpdateRequest();
  void keyEvent(uint32_t keysym, bool down);
  // Position and button mask; with relative, a movement.
  void pointerEvent(int32_t x, int32_t y, uint32_t buttonMask, bool relative = false);
  void clientCutText(std::string_view text);
  void setParams(const std::vector<Parameter>& parameters);
  void setDisplayMode(uint32_t width, uint32_t height);
  void setMonitor(std::string_view selection);
  void setXServerOwner(uint64_t userId, uint64_t groupId);
  // An empty source means all.
  void setLogLevel(uint32_t level, std::string_view source = {});

  // What was last published; a rectangle of no size before that.
  const PixelBufferInfo& pixelBuffer() const { return buffer_; }
  // The mapped segment; null before the first buffer, and when it could not be mapped. It stays
  // mapped for those who hold it when another one takes its place.
  std::shared_ptr<const plat::SharedMem> segment() const { return segment_; }
  // First pixel of the published rectangle, or null.
  const uint8_t* pixels() const;
  // Why the segment could not be mapped; empty when it could.
  const std::string& segmentError() const { return segmentError_; }
  // The colour map of a colour-map format, 256 entries.
  const std::vector<ColourMapEntry>& colourMap() const { return colourMap_; }

 private:
  struct Message {
    const char* name;
    void (AgentConnection::*read)(rdr::InStream& in);
  };
  static const Message kMessages[];

  bool readMsg(const char* name, rdr::InStream& in, io::MsgIpc& ipc) override;
  void channelClosed(io::MsgIpc& ipc) override;

  void readInit(rdr::InStream& in);
  void readInitRectAndPf(rdr::InStream& in);
  void readPixelBuffer(rdr::InStream& in);
  void readColourMap(rdr::InStream& in);
  void readUpdate(rdr::InStream& in);
  void readCursorImage(rdr::InStream& in);
  void readCursorPos(rdr::InStream& in);
  void readBell(rdr::InStream& in);
  void readLocalInput(rdr::InStream& in);
  void readCloseClients(rdr::InStream& in);
  void readDesktopFailure(rdr::InStream& in);
  void readCaptureBroken(rdr::InStream& in);
  void readDesktopUid(rdr::InStream& in);
  void readModesSupported(rdr::InStream& in);
  void readModesUpdated(rdr::InStream& in);
  void readMonitors(rdr::InStream& in);
  void readLogLine(rdr::InStream& in);
  void readBadMsg(rdr::InStream& in);
  // The one message that may be longer than what is held. False until all of the text is here.
  bool readCutText(rdr::InStream& in);

  AgentListener nobody_;
  AgentListener* listener_;
  ManualIo* endpoint_;  // null when the channel is closed
  PixelBufferInfo buffer_;
  std::shared_ptr<plat::SharedMem> segment_;
  std::string segmentError_;
  bool mapsSegments_ = true;
  std::vector<ColourMapEntry> colourMap_;
  // A clipboard text that is arriving.
  std::string cutText_;
  std::optional<uint32_t> cutTextLength_;
  io::MsgIpc ipc_;
  io::MsgIpc::Registration registration_{ipc_, *this};
  RefusalFinder refusals_;
};

}  // namespace host
