#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "io/Io.h"
#include "io/IoHandler.h"
#include "rdr/InStreamV4.h"
#include "rdr/NullOutStream.h"
#include "rdr/OutStreamV4.h"
#include "rdr/StateMachine.h"

namespace io {

// A channel of named messages over an endpoint. Each message is one framed message that begins with
// its name as a short string. Incoming messages are handed to the reader of their name.
//
// Driven by the loop. Nothing waits but readMessage() and flush(): input is handled when a whole
// message (or kMaxHeld bytes of it) has arrived, output that the peer does not take is kept. When
// the endpoint fails or ends, the channel is detached and the callback's channelClosed() called,
// from the loop, never from within a call that writes. What a reader throws is logged, its message
// skipped, and the channel goes on.
class MsgIpc : private IoHandler {
 public:
  // Bytes of a message that are held before its reader must take what there is.
  static constexpr size_t kMaxHeld = 1024 * 1024;

  class Reader {
   public:
    virtual ~Reader() = default;

    // Reads the body of a message. True when it has been read completely, false to be called again,
    // with the stream where it was left, when more input has arrived. May remove readers and detach
    // the channel, but not destroy it.
    virtual bool readMsg(const char* name, rdr::InStream& in, MsgIpc& ipc) = 0;
  };

  // Keeps a reader registered for messages of some names while it lives. Neither the channel, which
  // must outlive it, nor the reader is owned.
  class Registration {
   public:
    Registration(MsgIpc& ipc, Reader& reader, std::initializer_list<std::string_view> names = {});
    ~Registration();
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;

    void add(std::string_view name);

   private:
    MsgIpc& ipc_;
    Reader& reader_;
    std::vector<std::string> names_;
  };

  class Callback {
   public:
    virtual ~Callback() = default;

    // Asked before a message is written and before one that was received is handed to its reader.
    // The name need not be null-terminated.
    virtual bool isMsgAllowed(MsgIpc& /*ipc*/, std::string_view /*name*/, bool /*incoming*/) {
      return true;
    }
    // The channel has lost its endpoint (not called for detach()). May attach another, or destroy
    // the channel.
    virtual void channelClosed(MsgIpc& /*ipc*/) {}
    // From the loop: the channel was blocked, and no longer is.
    virtual void channelUnblocked(MsgIpc& /*ipc*/) {}
  };

  // The name begins the channel's log lines.
  explicit MsgIpc(std::string name);
  ~MsgIpc() override;
  MsgIpc(const MsgIpc&) = delete;
  MsgIpc& operator=(const MsgIpc&) = delete;

  const char* name() const { return name_.c_str(); }
  // Not owned, may be null.
  void setCallback(Callback* callback) { callback_ = callback; }
  // Answer a message of unknown name with "badMsg" (default: on), else only log it.
  void setReplyBadMsg(bool reply) { replyBadMsg_ = reply; }
  // Skip a message that failed and go on (default: on), else the channel is closed.
  void setSkipFailed(bool skip) { skipFailed_ = skip; }
  // While not connected, discard messages that are written (default: on), else writeMsg throws.
  void setDiscardWhenUnconnected(bool discard) { discardWhenUnconnected_ = discard; }

  // Uses this endpoint from now on, in place of the former one.
  void attach(std::unique_ptr<Io> io);
  // Closes the endpoint, after writing what it takes at once. Pending messages are lost.
  void detach();
  bool isConnected() const { return io_ && !io_->failure(); }
  // Whether the peer takes no more output for now; what is written is kept.
  bool isBlocked() const { return io_ && io_->isBlocked(); }

  // What a Registration does. The reader is not owned; a name has one reader at most (asserted).
  void addReader(std::string_view name, Reader* reader);
  // When it is the reader of the message at hand, the rest of that message is skipped.
  void removeReader(std::string_view name);

  // Begins a message and returns the stream for its body. Throws plat::Exception when the callback
  // does not allow it, rdr::FrameException when another message is being written (see isWriting),
  // and what the endpoint's stream throws, as do the writes and endMsg(); after an exception the
  // message must not be gone on with.
  rdr::OutStream& writeMsg(std::string_view name);
  void endMsg(bool flush = true);
  // Whether a message has been begun and not ended, so that no other one may be begun.
  bool isWriting() const { return out_.inMsg(); }
  // Waits until all output has been written. Throws rdr::TimedOut after timeoutMs (-1 without limit
  // but the channel's own).
  void flush(int timeoutMs = -1);

  // For readers: whether the body at hand has been read to its end.
  bool atEndOfMsg() { return in_.atEndOfMsg(); }

  // Reads what has arrived, once, and handles the messages that are complete. What readers and the
  // endpoint throw is passed on, after it was logged; messages that are still held are then handled
  // by the next call.
  void processMessages();
  // Waits until a message of this name has been handled, handling only that one: any other throws
  // plat::Exception. Throws rdr::TimedOut after timeoutMs (-1 without limit), rdr::EndOfStream, and
  // what the reader throws. Not inside a reader.
  void readMessage(std::string_view name, int timeoutMs = -1);

 private:
  using Machine = rdr::StateMachine<MsgIpc>;

  void inputReady(Io& io) override;
  void ioFailed(Io& io, const plat::Exception& reason) override;
  void deferredCall(Io& io) override;
  void outputUnblocked(Io& io) override;

  // State functions.
  bool startMsg();
  bool dispatch();
  bool finish();
  bool skip();

  // The states' work.
  std::string_view currentName() const { return {currentName_, nameLength_}; }
  void readEnvelope();
  void refuseUnknown();
  void fill();
  void run();
  void recover(const plat::Exception& error);
  // Handles what is held, whatever readers throw.
  void drain();

  // After these two the object may be gone.
  void closeFailed();
  void close();
  void release();

  const std::string name_;
  Callback* callback_ = nullptr;
  bool replyBadMsg_ = true;
  bool skipFailed_ = true;
  bool discardWhenUnconnected_ = true;

  std::unique_ptr<Io> io_;
  rdr::NullOutStream null_;
  rdr::OutStreamV4 out_;
  rdr::InStreamV4 in_;
  std::map<std::string, Reader*, std::less<>> readers_;

  Machine machine_;
  Reader* reader_ = nullptr;  // of the message at hand
  bool allowed_ = false;      // the message at hand was allowed
  uint64_t attachment_ = 0;   // changes with the endpoint
  bool running_ = false;
  bool isReasonLogged_ = false;  // of the channel's failure
  const std::string_view* expectedName_ = nullptr;
  bool expectedHandled_ = false;
  size_t nameLength_ = 0;
  char currentName_[256];
};

}  // namespace io
