#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "plat/log/LogDest.h"

namespace io {

class MsgIpc;

// The log destination "ipc": each line becomes a message "logMsg" on the channel, and the peer's
// "setLogLevel" changes the levels. Lines are kept while there is no channel, while another message
// is being written, while the peer takes no output, and when they come from another thread than the
// channel's; they go out, in order, when that has changed.
//
// logMsg: U32 level, short string source, string text. setLogLevel: U32 level, then a short string
// with the name of the source; "*" or nothing for all sources.
class LogDestIpc : public plat::LogDest {
 public:
  // Lines kept; when there are more, one line says so and further ones are dropped until all are
  // sent.
  static constexpr size_t kMaxQueued = 1000;
  // Bytes of a line's text that are sent.
  static constexpr size_t kMaxText = 1024;

  // Registers with the log manager.
  LogDestIpc();
  ~LogDestIpc() override;

  // Sends lines over the channel from now on, beginning with those that were kept. To be called on
  // the channel's thread, which must have an FdManager, with no message being written. The channel
  // must be detached before it is destroyed.
  void attach(MsgIpc& ipc);
  // Keeps lines again. On the channel's thread.
  void detach();
  // Sends the lines that are kept, also when the peer takes nothing for now, unless another message
  // is being written. On the channel's thread.
  void flush();
  // Whether there is a channel that is connected. On the channel's thread.
  bool isAttached() const;

  // Put before each source's name, as "<prefix>: "; empty for none.
  void setPrefix(const std::string& prefix);

  void write(const plat::LogLine& line) override;

 private:
  class Link;
  struct Entry {
    int level;
    std::string source;
    std::string text;
  };

  bool enqueue(const plat::LogLine& line);
  void drain();
  void send(MsgIpc& ipc);
  bool takeNext(Entry& entry);
  // The channel, when a line can be written to it at once; else null.
  MsgIpc* freeChannel();
  // False when the channel takes no more lines.
  bool trySend(MsgIpc& ipc, int level, std::string_view source, std::string_view text);

  mutable std::mutex mutex_;  // for what follows; never held while the channel is used
  std::deque<Entry> queue_;
  bool overflowed_ = false;
  std::string prefix_;
  std::unique_ptr<Link> link_;
  std::thread::id thread_;  // the channel's
  bool draining_ = false;
};

}  // namespace io
