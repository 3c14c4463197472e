#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "io/FdIo.h"
#include "io/FdManager.h"
#include "io/MsgIpc.h"
#include "support/SocketPair.h"

namespace test {

// A channel on this thread's loop, with the raw socket of its peer. It has readers for
//   number: U32
//   text:   string, taken as it arrives
//   list:   short strings up to the end of the message
//   odd:    U8, after which it claims to be done
class TestChannel : private io::MsgIpc::Callback, private io::MsgIpc::Reader {
 public:
  explicit TestChannel(io::MsgIpc::Driver driver = io::MsgIpc::kLoop) : ipc("Peer") {
    ipc.setCallback(this);
    for (const char* name : {"number", "text", "list", "odd"}) ipc.addReader(name, this);
    connect(driver);
  }

  void connect(io::MsgIpc::Driver driver = io::MsgIpc::kLoop) {
    pair = SocketPair();
    ipc.attach(std::make_unique<io::FdIo>(std::move(pair.ours)), driver);
  }

  // Turns of the loop until there is nothing to do.
  static void pump() {
    while (io::FdManager::instance().process(0)) {
    }
  }

  // Has the bytes arrive, in pieces.
  void feed(std::string_view bytes, size_t piece = 1 << 30) {
    while (!bytes.empty()) {
      const ssize_t n = pair.put(bytes.substr(0, piece));
      if (n < 0 && errno != EAGAIN) return;  // the channel was closed
      if (n > 0) bytes.remove_prefix(static_cast<size_t>(n));
      pump();
    }
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

  io::MsgIpc ipc;
  SocketPair pair;
  // Whether a message is allowed.
  std::function<bool(std::string_view name)> allow;
  // Called by readMsg first.
  std::function<void(std::string_view name)> onRead;
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
      seen_ += std::to_string(in.readU32()) + " ";
    } else if (name == "text") {
      return readText(in);
    } else if (name == "list") {
      while (!channel.atEndOfMsg()) seen_ += in.readShortString().str() + ",";
      seen_ += " ";
    } else {
      in.readU8();
      seen_ += "odd ";
    }
    return true;
  }

  bool readText(rdr::InStream& in) {
    try {
      if (!inText_) {
        text_.clear();
        textLeft_ = in.readU32();
        inText_ = true;
      }
      while (textLeft_ > 0) {
        const size_t n = in.check(1, textLeft_, false);
        if (n == 0) return false;
        text_.append(reinterpret_cast<const char*>(in.getPtr()), n);
        in.skip(n);
        textLeft_ -= n;
      }
    } catch (const plat::Exception&) {
      inText_ = false;
      throw;
    }
    inText_ = false;
    seen_ += text_.size() <= 20 ? "'" + text_ + "' " : std::to_string(text_.size()) + " bytes ";
    return true;
  }

  std::string seen_;
  std::string text_;
  size_t textLeft_ = 0;
  bool inText_ = false;
};

}  // namespace test
