#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "io/FdIo.h"
#include "io/FdSelectManager.h"
#include "io/MsgIpc.h"
#include "support/SocketPair.h"

namespace support {

// A channel on this thread's loop, with the raw socket of its peer. It has readers for
//   number: U32
//   list:   short strings up to the end of the message
class TestChannel : private io::MsgIpc::Callback, private io::MsgIpc::Reader {
 public:
  TestChannel() : ipc("Peer") {
    ipc.setCallback(this);
    connect();
  }

  void connect() {
    pair = SocketPair();
    ipc.attach(std::make_unique<io::FdIo>(std::move(pair.ours)));
  }

  // Turns of the loop until there is nothing to do. The channel may be destroyed meanwhile.
  void pump() {
    const std::shared_ptr<io::FdSelectManager> turning = loop;
    while (turning->process(0)) {
    }
  }

  // Has the bytes arrive.
  void feed(std::string_view bytes) {
    pair.put(bytes);
    pump();
  }
  // Ends the peer's side.
  void hangUp() {
    pair.peer.reset();
    pump();
  }

  // What the peer has been sent.
  std::string take() { return pair.take(); }
  // What was read, and what happened, since the last call.
  std::string seen() { return std::exchange(seen_, {}); }

  const std::shared_ptr<io::FdSelectManager> loop = std::make_shared<io::FdSelectManager>();
  io::MsgIpc ipc;
  std::unique_ptr<io::MsgIpc::Registration> registration{
      new io::MsgIpc::Registration(ipc, *this, {"number", "list"})};
  SocketPair pair;
  std::function<bool(std::string_view name)> allow;
  std::function<void(std::string_view name)> onRead;  // called first
  std::function<void()> onClosed;

 private:
  bool isMsgAllowed(io::MsgIpc&, std::string_view name, bool) override {
    return !allow || allow(name);
  }
  void channelClosed(io::MsgIpc&) override {
    seen_ += "closed ";
    if (onClosed) onClosed();
  }

  bool readMsg(const char* nameText, rdr::InStream& in, io::MsgIpc& channel) override {
    const std::string_view name = nameText;
    if (onRead) onRead(name);
    if (name == "number") {
      seen_ += std::to_string(in.readU32());
    } else {
      while (!channel.atEndOfMsg()) seen_ += in.readShortString().str() + ",";
    }
    seen_ += " ";
    return true;
  }

  std::string seen_;
};

}  // namespace support
