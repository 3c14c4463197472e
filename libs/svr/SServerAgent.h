#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "io/IoAcceptor.h"
#include "io/MsgIpc.h"
#include "rfb/PixelFormat.h"
#include "rfb/Rect.h"
#include "svr/ByteReader.h"
#include "svr/OutgoingMessages.h"
#include "svr/SServer.h"

namespace io {
class LogDestIpc;
}
namespace rfb {
class CursorWithAlpha;
}

namespace svr {

class SDesktop;

// The agent's end of the conversation with the server: hands the server's messages to the desktop,
// and what the desktop reports to the server. At most one update answers each request for one.
// While the server does not read, of cursor images and clipboard texts, whose size and number X
// clients choose, only the latest is kept.
class SServerAgent : public SServer,
                     public io::IoAcceptor,
                     private io::MsgIpc::Callback,
                     private io::MsgIpc::Reader {
 public:
  class Callback {
   public:
    virtual void desktopStarted(bool started) = 0;
    // Text that a viewer copied: UTF-8.
    virtual void clientCutText(std::string_view text) = 0;
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
  // What has news for the server that is no desktop's writes it here.
  OutgoingMessages& messages() { return messages_; }

  // SServer
  void setPixelBuffer(rfb::PixelBuffer* buffer) override;
  void setColourMapEntries(int firstColour, int nColours) override;
  void serverCutText(const char* text, size_t length) override;
  void bell() override { messages_.bell(); }
  bool isUpdateRequested() override { return updateRequested_; }
  void monitorsUpdated(const std::vector<plat::DisplayInfo>& monitors,
                       const plat::String& parameter, const plat::String& inForce) override {
    messages_.monitorsUpdated(monitors, parameter, inForce);
  }
  void captureBroken(bool broken) override { messages_.captureBroken(broken); }
  void desktopFailure(const plat::Exception& error) override;
  void closeClients(const plat::Exception& error) override { messages_.closeClients(error); }
  void writeUpdate(const rfb::UpdateInfo& update) override;
  void setCursor(rfb::Cursor* cursor) override;
  void setCursorPos(const rfb::Point& position) override { messages_.setCursorPos(position); }
  void localInput() override { messages_.localInput(); }

  // io::IoAcceptor: talks over this endpoint from now on.
  void accept(std::unique_ptr<io::Io> io) override;

  // Stops the desktop if it is started, as the message "stop" does.
  void stopDesktop();

 private:
  // io::MsgIpc::Callback
  void channelClosed(io::MsgIpc& ipc) override;
  void channelUnblocked(io::MsgIpc& ipc) override;
  // io::MsgIpc::Reader
  bool readMsg(const char* name, rdr::InStream& in, io::MsgIpc& ipc) override;

  // The readers of the messages; all but "clientCutText" take one step.
  bool readStart(rdr::InStream& in);
  bool readStop(rdr::InStream& in);
  bool readUpdateRequest(rdr::InStream& in);
  bool readPointerEvent(rdr::InStream& in);
  bool readKeyEvent(rdr::InStream& in);
  bool readCutText(rdr::InStream& in);
  bool readParams(rdr::InStream& in);

  // Nothing of the conversation so far counts any more.
  void forgetConversation();
  void sendCursor(std::unique_ptr<rfb::CursorWithAlpha> image);

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
    std::optional<std::string> cutText;
  };

  struct Incoming {
    const char* name;
    bool (SServerAgent::*read)(rdr::InStream& in);
  };
  static const Incoming kIncoming[];

  Callback* callback_;
  io::MsgIpc channel_;
  OutgoingMessages messages_{channel_};
  io::MsgIpc::Registration registration_{channel_, *this};
  io::LogDestIpc* logDest_;
  ByteReader cutText_;
  SDesktop* desktop_;
  Published published_;
  Held held_;
  bool desktopStarted_ = false;
  bool updateRequested_ = false;
};

}  // namespace svr
