#include "io/LogDestIpc.h"

#include <algorithm>
#include <climits>
#include <utility>

#include "io/BeforeWait.h"
#include "io/FdKicker.h"
#include "io/MsgIpc.h"
#include "plat/Exception.h"
#include "plat/Utf8.h"
#include "plat/log/LogManager.h"
#include "plat/timer/Timer.h"
#include "rdr/InStream.h"
#include "rdr/OutStream.h"

namespace io {

namespace {

// True as long as it lives, also when memory runs out meanwhile.
class While {
 public:
  explicit While(bool& flag) : flag_(flag) { flag_ = true; }
  ~While() { flag_ = false; }
  While(const While&) = delete;
  While& operator=(const While&) = delete;

 private:
  bool& flag_;
};

}  // namespace

// The tie to one channel.
class LogDestIpc::Link : private MsgIpc::Reader,
                         private FdKicker::Callback,
                         private BeforeWait::Callback,
                         private plat::Timer::Callback {
 public:
  Link(LogDestIpc& owner, MsgIpc& ipc)
      : owner_(owner), ipc_(ipc), kicker_(this), retry_(this), flush_(*this) {}

  // Null when lines cannot be sent for good.
  MsgIpc* ipc() const { return refused_ ? nullptr : &ipc_; }
  // Sending failed: it would fail, and log, again and again.
  void refuse() { refused_ = true; }
  // From any thread.
  void kick() noexcept { kicker_.kick(); }
  // The channel cannot take lines now: on the loop's next turn, and then now and then.
  void retryLater() {
    if (!retry_.isRunning()) retry_.start(std::exchange(retryMs_, kRetryMs));
  }
  void sent() { retryMs_ = 0; }
  // Lines that have been written leave together before the loop's next wait: what a line tells of
  // is done sooner, and in fewer calls.
  void flushSoon() { flush_.request(); }

 private:
  static constexpr int kRetryMs = 100;

  bool readMsg(const char*, rdr::InStream& in, MsgIpc& ipc) override {
    const uint32_t level = in.readU32();
    const plat::String source = ipc.atEndOfMsg() ? plat::String() : in.readShortString();
    plat::LogManager::instance().setLevel(owner_, source.empty() ? "*" : source.view(),
                                          static_cast<int>(std::min<uint32_t>(level, INT_MAX)));
    return true;
  }
  void kicked(FdKicker&) override { owner_.drain(); }
  void timerCallback(plat::Timer&) override { owner_.drain(); }
  void beforeWait() override {
    try {
      ipc_.flush(0);
    } catch (const plat::Exception&) {
      // The channel is blocked, or notices by itself that it has failed.
    }
  }

  LogDestIpc& owner_;
  MsgIpc& ipc_;
  MsgIpc::Registration registration_{ipc_, *this, {"setLogLevel"}};
  FdKicker kicker_;
  plat::Timer retry_;
  BeforeWait flush_;
  int retryMs_ = 0;
  bool refused_ = false;
};

LogDestIpc::LogDestIpc() : LogDest("ipc") {
  plat::LogManager::instance().addDest(*this);
}

LogDestIpc::~LogDestIpc() {
  plat::LogManager::instance().removeDest(*this);
  detach();
}

void LogDestIpc::attach(MsgIpc& ipc) {
  detach();
  auto link = std::make_unique<Link>(*this, ipc);
  {
    const std::lock_guard lock(mutex_);
    link_ = std::move(link);
    thread_ = std::this_thread::get_id();
  }
  drain();
}

void LogDestIpc::flush() {
  if (link_ && link_->ipc() && !link_->ipc()->isWriting()) send(*link_->ipc());
}

void LogDestIpc::detach() {
  flush();
  std::unique_ptr<Link> link;
  const std::lock_guard lock(mutex_);
  link = std::move(link_);
}

bool LogDestIpc::isAttached() const {
  return link_ && link_->ipc() && link_->ipc()->isConnected();
}

void LogDestIpc::setPrefix(const std::string& prefix) {
  const std::lock_guard lock(mutex_);
  prefix_ = prefix;
}

void LogDestIpc::write(const plat::LogLine& line) {
  if (MsgIpc* const ipc = freeChannel()) {
    const While sending(draining_);
    trySend(*ipc, line.level, line.source, plat::utf8Cut(line.text, kMaxText));
  } else if (enqueue(line)) {
    drain();
  }
}

MsgIpc* LogDestIpc::freeChannel() {
  const std::lock_guard lock(mutex_);
  if (!link_ || std::this_thread::get_id() != thread_ || draining_) return nullptr;
  MsgIpc* const ipc = link_->ipc();
  const bool isFree = ipc && ipc->isConnected() && !ipc->isWriting() && !ipc->isBlocked();
  return isFree && queue_.empty() && prefix_.empty() ? ipc : nullptr;
}

// Returns whether the caller, being on the channel's thread, may send.
bool LogDestIpc::enqueue(const plat::LogLine& line) {
  const std::lock_guard lock(mutex_);
  if (overflowed_) return false;
  if (queue_.size() > kMaxQueued) {
    overflowed_ = true;
    queue_.push_back({0, "LogDestIpc", "Too many messages, discarding further ones"});
  } else {
    queue_.push_back(
        {line.level,
         prefix_.empty() ? line.source : plat::format("%s: %s", prefix_.c_str(), line.source),
         std::string(plat::utf8Cut(line.text, kMaxText))});
  }
  if (!link_) return false;
  if (std::this_thread::get_id() == thread_ && !draining_) return true;
  link_->kick();
  return false;
}

bool LogDestIpc::takeNext(Entry& entry) {
  const std::lock_guard lock(mutex_);
  if (queue_.empty()) return false;
  entry = std::move(queue_.front());
  queue_.pop_front();
  if (queue_.empty()) overflowed_ = false;
  return true;
}

void LogDestIpc::drain() {
  MsgIpc* const ipc = link_ ? link_->ipc() : nullptr;
  if (!ipc || !ipc->isConnected()) return;
  if (ipc->isWriting() || ipc->isBlocked()) {
    link_->retryLater();
  } else {
    send(*ipc);
  }
}

// Sends the lines that are there now. Those that sending gives rise to wait for the next turn of
// the loop, so that lines about lines cannot keep it from going on.
void LogDestIpc::send(MsgIpc& ipc) {
  if (draining_ || !ipc.isConnected()) return;
  link_->sent();
  size_t left = 0;
  {
    const std::lock_guard lock(mutex_);
    left = queue_.size();
  }
  const While sending(draining_);
  Entry entry;
  while (left-- > 0 && takeNext(entry) && trySend(ipc, entry.level, entry.source, entry.text)) {
  }
}

bool LogDestIpc::trySend(MsgIpc& ipc, int level, std::string_view source, std::string_view text) {
  try {
    rdr::OutStream& out = ipc.writeMsg("logMsg");
    out.writeU32(static_cast<uint32_t>(level));
    out.writeShortString(source);
    out.writeString(text);
    // After an error the process may be about to end.
    const bool urgent = level == 0;
    ipc.endMsg(urgent);
    if (!urgent) link_->flushSoon();
    return true;
  } catch (const plat::Exception&) {
    link_->refuse();
    return false;
  }
}

}  // namespace io
