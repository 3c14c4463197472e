#pragma once

#include <memory>
#include <optional>
#include <string>

#include "io/IoAcceptor.h"
#include "io/MsgIpc.h"
#include "rdr/StateMachine.h"
#include "rfb/PixelFormat.h"
#include "rfb/Rect.h"
#include "svr/ByteReader.h"
#include "svr/SServer.h"

namespace io {
class LogDestIpc;
}
namespace plat {
class LogSrc;
class SharedMem;
}  // namespace plat
namespace rfb {
class CursorWithAlpha;
}

namespace svr {

class SDesktop;

// The agent's end of the conversation with the server: hands the server's messages to the desktop,
// and what the desktop reports to the server. At most one update answers each request for one.
// While the server does not read, of what the desktop may report any number of times (the cursor,
// its position, clipboard texts, local input, the bell) only the latest is kept.
class SServerAgent : public SServer,
                     public io::IoAcceptor,
                     private io::MsgIpc::Callback,
                     private io::MsgIpc::Reader {
 public:
  class Callback {
   public:
    virtual void desktopStarted(bool started) = 0;
    // The channel has closed; the desktop is stopped by now.
    virtual void serverDisconnected() = 0;

   protected:
    ~Callback() = default;
  };

  // The first word of the conversation.
  static constexpr uint32_t kMagic = 0x7CCA9ECB;

  // Nothing is owned. The log destination (may be null) uses the channel while there is one.
  SServerAgent(Callback* callback, SDesktop* desktop, io::LogDestIpc* logDest);
  // Stops the desktop, then closes the channel.
  ~SServerAgent() override;

  io::MsgIpc& channel() { return channel_; }

  // SServer
  void setPixelBuffer(rfb::PixelBuffer* buffer) override;
  void setColourMapEntries(int firstColour, int nColours) override;
  void serverCutText(const char* text, size_t length) override;
  void bell() override;
  bool isUpdateRequested() override { return updateRequested_; }
  void desktopFailure(const plat::Exception& error) override;
  void closeClients(const plat::Exception& error) override;
  void writeUpdate(const rfb::UpdateInfo& update) override;
  void setCursor(rfb::Cursor* cursor) override;
  void setCursorPos(const rfb::Point& position) override;
  void localInput() override;

  // io::IoAcceptor: talks over this endpoint from now on.
  void accept(std::unique_ptr<io::Io> io) override;

  // Stops the desktop if it is started, as the message "stop" does.
  void stopDesktop();

  // The log source of the conversation.
  static plat::LogSrc& log();

 private:
  // io::MsgIpc::Callback
  void channelClosed(io::MsgIpc& ipc) override;
  void channelUnblocked(io::MsgIpc& ipc) override;
  // io::MsgIpc::Reader
  bool readMsg(const char* name, rdr::InStream& in, io::MsgIpc& ipc) override;

  // One step of the parser for each message.
  bool readStart();
  bool readStop();
  bool readUpdateRequest();
  bool readPointerEvent();
  bool readKeyEvent();
  bool readCutTextLength();
  bool readCutText();
  bool readParams();

  void abandonMessage();
  void sendCursor(std::unique_ptr<rfb::CursorWithAlpha> image);
  void writeSetPixelBuffer(rfb::PixelBuffer& buffer, const plat::SharedMem* newMemory);

  // What was last published.
  struct Published {
    rfb::PixelBuffer* buffer = nullptr;
    int64_t memorySerial = -1;  // -1: no shared memory
    rfb::Rect rect;
    rfb::PixelFormat format;

    friend bool operator==(const Published&, const Published&) = default;
  };

  // Reports that wait until the server reads again.
  struct Held {
    std::optional<std::unique_ptr<rfb::CursorWithAlpha>> cursor;
    std::optional<rfb::Point> cursorPos;
    std::optional<std::string> cutText;
    bool localInput = false;
    bool bell = false;
  };

  struct MessageStep {
    const char* name;
    bool (SServerAgent::*step)();
  };
  static const MessageStep kMessages[];

  Callback* callback_;
  io::MsgIpc channel_;
  io::LogDestIpc* logDest_;
  rdr::StateMachine<SServerAgent> machine_;
  rdr::InStream* in_ = nullptr;
  ByteReader cutText_;
  SDesktop* desktop_;
  Published published_;
  Held held_;
  bool desktopStarted_ = false;
  bool updateRequested_ = false;
};

}  // namespace svr
