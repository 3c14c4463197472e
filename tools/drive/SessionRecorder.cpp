#include "SessionRecorder.h"

#include <signal.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>

#include "Failure.h"
#include "Picture.h"
#include "plat/Exception.h"

namespace drive {

namespace {

using Kind = SessionRecord::Kind;

constexpr size_t kPiece = 8192;

std::pair<plat::FileDescriptor, plat::FileDescriptor> makePair() {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) < 0) {
    throw plat::SystemException("socketpair", errno);
  }
  return {plat::FileDescriptor(ends[0]), plat::FileDescriptor(ends[1])};
}

}  // namespace

SessionRecorder::SessionRecorder(const RecordingOptions& options)
    : options_(options), writer_(options.file, options.redact) {
  if (!options.pixels) return;
  auto [ours, theirs] = makePair();
  toMirror_ = std::move(ours);
  mirror_ = std::make_unique<host::AgentConnection>(std::move(theirs), this);
}

SessionRecorder::~SessionRecorder() {
  if (thread_.joinable()) thread_.join();
}

void SessionRecorder::run(plat::FileDescriptor agent, plat::FileDescriptor server) {
  Relay relay(std::move(agent), std::move(server));
  relay.run([this](const uint8_t* b, size_t length) { witness(Kind::kAgent, b, length); },
            [this](const uint8_t* b, size_t length) { witness(Kind::kServer, b, length); });
}

plat::FileDescriptor SessionRecorder::start(plat::FileDescriptor agent) {
  auto [ours, theirs] = makePair();
  // Signals are the caller's.
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, &before);
  thread_ = std::thread([this, a = std::move(agent), s = std::move(theirs)]() mutable {
    try {
      run(std::move(a), std::move(s));
    } catch (const plat::Exception& e) {
      error_ = e.text();
    }
  });
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return std::move(ours);
}

void SessionRecorder::commit() {
  if (done_) return;
  done_ = true;
  if (thread_.joinable()) thread_.join();
  if (!error_.empty()) throw plat::Exception("%s", error_.c_str());
  writer_.commit();
}

void SessionRecorder::witness(Kind from, const uint8_t* bytes, size_t length) {
  if (!error_.empty()) return;
  try {
    writer_.passed(from, bytes, length);
    if (mirror_ && from == Kind::kAgent) showMirror(bytes, length);
  } catch (const plat::Exception& e) {
    error_ = e.text();
  } catch (const Failure& e) {
    error_ = e.what();
  }
}

void SessionRecorder::showMirror(const uint8_t* bytes, size_t length) {
  while (length > 0 && mirror_->isConnected()) {
    const ssize_t sent =
        send(toMirror_.get(), bytes, std::min(length, kPiece), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent <= 0) throw plat::SystemException("send", errno);
    bytes += sent;
    length -= static_cast<size_t>(sent);
    int left = 1;
    while (mirror_->isConnected() && (left > 0 || mirror_->msUntilNext() == 0)) {
      mirror_->process(0);
      if (mirror_->isConnected() && ioctl(mirror_->fd(), FIONREAD, &left) < 0) left = 0;
    }
  }
}

void SessionRecorder::setPixelBuffer(const host::PixelBufferInfo& info) {
  writePixels(info.rect);
}

void SessionRecorder::fbUpdate(const host::UpdateMessage& update) {
  for (const rfb::Rect& rect : update.changed.rects()) writePixels(rect);
}

void SessionRecorder::writePixels(const rfb::Rect& rect) {
  // Without the memory the messages are worth having all the same.
  const rfb::Rect visible = rect.intersect(mirror_->pixelBuffer().rect);
  if (!mirror_->pixels() || visible.isEmpty()) return;
  writer_.pixels(visible, Picture::ofFramebuffer(*mirror_, visible).encode(PictureFormat::kPng));
}

}  // namespace drive
