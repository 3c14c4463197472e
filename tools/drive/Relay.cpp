#include "Relay.h"

#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <string>

#include "Terminal.h"
#include "plat/Exception.h"

namespace drive {

namespace {

// Held of a direction while its receiver takes nothing.
constexpr size_t kMaxHeld = 256 * 1024;

bool isWaiting() {
  return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

// One direction.
class Pipe {
 public:
  Pipe(int from, int to, const Relay::Witness& witness) : from_(from), to_(to), witness_(witness) {}

  bool isOver() const { return over_; }
  short readEvents() const { return !ended_ && held_.size() < kMaxHeld ? POLLIN : short{0}; }
  short writeEvents() const { return held_.empty() ? short{0} : POLLOUT; }
  void turn(short fromEvents, short toEvents) {
    if (readEvents() != 0 && (fromEvents & (POLLIN | POLLHUP | POLLERR)) != 0) read();
    if ((toEvents & (POLLERR | POLLHUP)) != 0) deaf_ = true;
    if (deaf_) held_.clear();
    if (!held_.empty()) write();
    if (ended_ && held_.empty() && !over_) {
      over_ = true;
      shutdown(to_, SHUT_WR);
    }
  }

 private:
  void read() {
    std::array<uint8_t, 65536> bytes;
    const ssize_t got = recv(from_, bytes.data(), bytes.size(), 0);
    if (got > 0) {
      witness_(bytes.data(), static_cast<size_t>(got));
      held_.append(reinterpret_cast<const char*>(bytes.data()), static_cast<size_t>(got));
    } else if (got == 0 || !isWaiting()) {
      ended_ = true;
    }
  }
  void write() {
    const ssize_t sent = send(to_, held_.data(), held_.size(), MSG_NOSIGNAL);
    if (sent > 0) {
      held_.erase(0, static_cast<size_t>(sent));
    } else if (sent < 0 && !isWaiting()) {
      deaf_ = true;
      held_.clear();
    }
  }

  const int from_, to_;
  const Relay::Witness& witness_;
  std::string held_;
  bool ended_ = false;
  bool over_ = false;
  bool deaf_ = false;  // the receiver has gone; the sender is heard to its end all the same
};

}  // namespace

Relay::Relay(plat::FileDescriptor agent, plat::FileDescriptor server)
    : agent_(std::move(agent)), server_(std::move(server)) {
  plat::FileDescriptor::setNonBlocking(agent_.get());
  plat::FileDescriptor::setNonBlocking(server_.get());
}

void Relay::run(const Witness& fromAgent, const Witness& fromServer) {
  Pipe fromAgentPipe(agent_.get(), server_.get(), fromAgent);
  Pipe fromServerPipe(server_.get(), agent_.get(), fromServer);
  // Nothing reaches an agent that has gone.
  while (!fromAgentPipe.isOver()) {
    std::array<pollfd, 2> entries{
        pollfd{agent_.get(),
               static_cast<short>(fromAgentPipe.readEvents() | fromServerPipe.writeEvents()), 0},
        pollfd{server_.get(),
               static_cast<short>(fromServerPipe.readEvents() | fromAgentPipe.writeEvents()), 0}};
    for (pollfd& entry : entries) {
      if (entry.events == 0) entry.fd = -1;
    }
    if (poll(entries.data(), entries.size(), -1) < 0) {
      if (errno == EINTR && !interrupted()) continue;
      if (errno == EINTR) return;
      throw plat::SystemException("poll", errno);
    }
    fromAgentPipe.turn(entries[0].revents, entries[1].revents);
    fromServerPipe.turn(entries[1].revents, entries[0].revents);
  }
}

}  // namespace drive
