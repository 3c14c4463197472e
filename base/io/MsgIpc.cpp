#include "io/MsgIpc.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <utility>
#include <vector>

#include "plat/Assert.h"
#include "plat/Deadline.h"
#include "plat/log/LogSrc.h"
#include "rdr/Exceptions.h"

namespace io {

namespace {

plat::LogSrc vlog("FdIo");

constexpr std::string_view kBadMsg = "badMsg";
// Not to be announced when it is discarded: the announcement would become another one.
constexpr std::string_view kLogMsg = "logMsg";

int printedLength(std::string_view text) {
  return static_cast<int>(text.size());
}

template <typename F>
class AtExit {
 public:
  explicit AtExit(F f) : f_(std::move(f)) {}
  ~AtExit() { f_(); }
  AtExit(const AtExit&) = delete;
  AtExit& operator=(const AtExit&) = delete;

 private:
  F f_;
};

}  // namespace

MsgIpc::MsgIpc(std::string name)
    : name_(std::move(name)), out_(&null_), machine_(&MsgIpc::startMsg), currentName_{} {
  in_.setBufferedOnly(true);
}

MsgIpc::~MsgIpc() {
  PLAT_ASSERT(readers_.empty());
  detach();
}

void MsgIpc::attach(std::unique_ptr<Io> io) {
  detach();
  io_ = std::move(io);
  out_.setUnderlying(&io_->outStream());
  in_.setUnderlying(&io_->inStream());
  io_->setHandler(this);
  if (io_->inStream().available() > 0) io_->defer();
}

void MsgIpc::detach() {
  if (!io_) return;
  if (isConnected()) {
    try {
      io_->outStream().flush();
    } catch (const plat::Exception& e) {
      vlog.error("%s: %s", name(), e.text());
    }
  }
  release();
}

void MsgIpc::release() {
  ++attachment_;
  in_.setUnderlying(nullptr);
  out_.setUnderlying(&null_);
  machine_.setStateFn(&MsgIpc::startMsg);
  reader_ = nullptr;
  io_.reset();
}

MsgIpc::Registration::Registration(MsgIpc& ipc, Reader& reader,
                                   std::initializer_list<std::string_view> names)
    : ipc_(ipc), reader_(reader) {
  for (const std::string_view name : names) add(name);
}

MsgIpc::Registration::~Registration() {
  for (const std::string& name : names_) ipc_.removeReader(name);
}

void MsgIpc::Registration::add(std::string_view name) {
  names_.emplace_back(name);
  ipc_.addReader(name, &reader_);
}

void MsgIpc::addReader(std::string_view name, Reader* reader) {
  const bool isNew = readers_.emplace(name, reader).second;
  PLAT_ASSERT(isNew);
}

void MsgIpc::removeReader(std::string_view name) {
  const auto it = readers_.find(name);
  if (it == readers_.end()) return;
  readers_.erase(it);
  if (machine_.current() == &MsgIpc::dispatch && name == currentName()) {
    reader_ = nullptr;
    machine_.setStateFn(&MsgIpc::skip);
  }
}

rdr::OutStream& MsgIpc::writeMsg(std::string_view msgName) {
  if (callback_ && !callback_->isMsgAllowed(*this, msgName, false)) {
    vlog.error("%s: Message '%.*s' not currently allowed", name(), printedLength(msgName),
               msgName.data());
    throw plat::Exception("MsgIpc::writeMsg: Message not currently allowed");
  }
  if (!isConnected()) {
    if (!discardWhenUnconnected_) throw plat::Exception("MsgIpc::writeMsg: Not connected");
    if (msgName != kLogMsg) {
      vlog.debug("%s: Discarding message '%.*s'", name(), printedLength(msgName), msgName.data());
    }
    // Also gives up a message that the endpoint failed in.
    out_.setUnderlying(&null_);
  }
  try {
    out_.startMsg();
  } catch (const rdr::FrameException& e) {
    io_->fail(e);
    throw;
  }
  out_.writeShortString(msgName);
  return out_;
}

void MsgIpc::endMsg(bool flush) {
  try {
    out_.endMsg(flush);
  } catch (const rdr::FrameException& e) {
    if (io_) io_->fail(e);
    throw;
  }
}

void MsgIpc::flush(int timeoutMs) {
  if (isConnected()) io_->flush(timeoutMs);
}

void MsgIpc::processMessages() {
  if (!isConnected() || running_) return;
  fill();
  run();
}

void MsgIpc::readMessage(std::string_view msgName, int timeoutMs) {
  if (running_ || machine_.current() != &MsgIpc::startMsg || in_.inMsg()) {
    throw plat::Exception("MsgIpc::readMessage: not in state startMsg");
  }
  expectedName_ = &msgName;
  expectedHandled_ = false;
  const AtExit clear([this] {
    expectedName_ = nullptr;
    expectedHandled_ = false;
    // The loop does not know of what is held already.
    if (io_ && io_->inStream().available() > 0) io_->defer();
  });

  const plat::Deadline deadline(timeoutMs);
  for (;;) {
    run();
    if (expectedHandled_) return;
    if (!isConnected()) throw rdr::EndOfStream();
    try {
      if (!io_->wait(deadline.msLeft())) throw rdr::TimedOut();
    } catch (const plat::SystemException& e) {
      io_->fail(e);
      throw;
    }
    fill();
  }
}

void MsgIpc::inputReady(Io&) {
  if (running_) return;
  if (isWriting() && isConnected()) {
    // No message is written across turns of the loop: its writer gave up half-way.
    io_->fail(rdr::FrameException("MsgIpc: message was not ended"));
  }
  if (isConnected()) {
    try {
      fill();
      drain();
    } catch (const plat::Exception&) {
      // The endpoint knows.
    }
  }
  if (io_ && io_->failure()) closeFailed();
}

void MsgIpc::ioFailed(Io& io, const plat::Exception&) {
  if (running_) {
    io.defer();
  } else {
    closeFailed();
  }
}

void MsgIpc::deferredCall(Io&) {
  if (running_) return;
  drain();
  if (io_ && io_->failure()) closeFailed();
}

void MsgIpc::outputUnblocked(Io&) {
  if (callback_ && isConnected() && !isBlocked() && !isWriting()) {
    callback_->channelUnblocked(*this);
  }
}

void MsgIpc::closeFailed() {
  const plat::Exception reason = *io_->failure();
  const bool atBoundary = io_->inStream().available() == 0 && !in_.inMsg();
  const bool isOrderly = atBoundary && std::strcmp(reason.kind(), "EndOfStream") == 0;
  if (!isOrderly && !isReasonLogged_) vlog.error("%s: %s", name(), reason.text());
  close();
}

void MsgIpc::close() {
  release();
  if (callback_) callback_->channelClosed(*this);
}

// One read of what has arrived.
void MsgIpc::fill() {
  rdr::InStream& in = io_->inStream();
  in_.giveBackSpan();
  try {
    in.check(in.available() + 1, 1, false);
  } catch (const plat::Exception& e) {
    io_->fail(e);
    throw;
  }
}

void MsgIpc::run() {
  if (!isConnected()) return;
  running_ = true;
  isReasonLogged_ = false;
  const AtExit stopped([this] { running_ = false; });
  try {
    machine_.run(*this);
  } catch (const plat::Exception& e) {
    recover(e);
    throw;
  } catch (const std::bad_alloc&) {
    const plat::Exception e("Out of memory");
    recover(e);
    throw e;
  }
}

void MsgIpc::drain() {
  for (;;) {
    try {
      run();
      return;
    } catch (const plat::Exception&) {
      // It was logged, and its message left.
    }
  }
}

void MsgIpc::recover(const plat::Exception& error) {
  vlog.error("%s: %s", name(), error.text());
  // The channel may have failed under the message's reader.
  isReasonLogged_ = io_ && io_->failure() && std::strcmp(io_->failure()->text(), error.text()) == 0;
  reader_ = nullptr;
  if (in_.inMsg()) {
    if (!skipFailed_) {
      in_.abandonMsg();
      isReasonLogged_ = true;
      io_->fail(error);
    } else {
      try {
        if (!in_.skipToEndOfMsg(false)) {
          machine_.setStateFn(&MsgIpc::skip);
          return;
        }
        in_.endMsg();
      } catch (const plat::Exception& e) {
        vlog.error("%s: skip error: %s", name(), e.text());
        in_.abandonMsg();
      }
    }
  }
  machine_.setStateFn(&MsgIpc::startMsg);
}

bool MsgIpc::startMsg() {
  if (!isConnected() || expectedHandled_) return false;
  if (!in_.isMsgBuffered() && io_->inStream().available() < kMaxHeld) return false;
  in_.startMsg();
  readEnvelope();
  if (expectedName_ && currentName() != *expectedName_ && currentName() != kBadMsg) {
    throw plat::Exception("MsgIpc: expected message %s, got %s",
                          std::string(*expectedName_).c_str(), currentName_);
  }
  const auto it = readers_.find(currentName());
  if (it == readers_.end()) {
    refuseUnknown();
    machine_.setStateFn(&MsgIpc::skip);
  } else {
    reader_ = it->second;
    allowed_ = false;
    machine_.setStateFn(&MsgIpc::dispatch);
  }
  return true;
}

void MsgIpc::readEnvelope() {
  nameLength_ = 0;
  currentName_[0] = '\0';
  const size_t length = in_.readU8();
  in_.readBytes(currentName_, length);
  currentName_[length] = '\0';
  nameLength_ = length;
}

void MsgIpc::refuseUnknown() {
  if (currentName() == kBadMsg) {
    const plat::String refused = in_.readShortString();
    vlog.error("%s: Peer reports bad msg name '%s'", name(), refused.c_str());
    throw plat::Exception("MsgIpc: expected message %s, peer reports bad msg name '%s'",
                          expectedName_ ? std::string(*expectedName_).c_str() : "<null>",
                          refused.c_str());
  }
  if (replyBadMsg_) {
    writeMsg(kBadMsg).writeShortString(currentName());
    endMsg(true);
  } else {
    vlog.error("%s: Bad msg name '%s'", name(), currentName_);
  }
}

bool MsgIpc::dispatch() {
  const uint64_t attachment = attachment_;
  if (!allowed_) {
    const bool allowed = !callback_ || callback_->isMsgAllowed(*this, currentName(), true);
    if (attachment != attachment_) return false;
    if (!reader_) return true;
    if (!allowed) {
      vlog.error("%s: Message '%s' not currently allowed", name(), currentName_);
      machine_.setStateFn(&MsgIpc::skip);
      return true;
    }
    allowed_ = true;
  }
  const bool done = reader_->readMsg(currentName_, in_, *this);
  if (attachment != attachment_) return false;
  if (!reader_) return true;  // removed, so the rest is skipped
  if (done) {
    machine_.setStateFn(&MsgIpc::finish);
    return true;
  }
  in_.giveBackSpan();
  // A reader that leaves so much cannot be helped by more.
  if (io_->inStream().available() >= kMaxHeld) throw rdr::BlockException();
  return false;
}

bool MsgIpc::finish() {
  if (!in_.isEndKnown()) return false;
  in_.endMsg();
  if (expectedName_ && currentName() == *expectedName_) expectedHandled_ = true;
  reader_ = nullptr;
  machine_.setStateFn(&MsgIpc::startMsg);
  return true;
}

bool MsgIpc::skip() {
  if (!in_.skipToEndOfMsg(false)) return false;
  in_.endMsg();
  machine_.setStateFn(&MsgIpc::startMsg);
  return true;
}

}  // namespace io
