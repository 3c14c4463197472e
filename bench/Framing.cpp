// A message in and its answer out, beside the same bytes through a bare socket pair with the same
// waiting: what framing and dispatch cost on top of the system calls.
//
// In "inline" one thread is both ends, so nothing but work is measured; in "threads" the peer is a
// thread of its own and the time is the round trip's, with its two wake-ups.

#include <benchmark/benchmark.h>
#include <poll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "RatioReporter.h"
#include "io/FdIo.h"
#include "io/FdSelectManager.h"
#include "io/MsgIpc.h"
#include "plat/FileDescriptor.h"

namespace {

std::atomic<size_t> allocations{0};

}  // namespace

void* operator new(size_t size) {
  ++allocations;
  if (void* const memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, size_t) noexcept {
  std::free(memory);
}

namespace {

enum class Wait { kSelect, kPoll };

void require(bool ok, const char* what) {
  if (ok) return;
  std::perror(what);
  std::exit(1);
}

void writeAll(int fd, const char* data, size_t size) {
  while (size > 0) {
    const ssize_t n = write(fd, data, size);
    require(n > 0, "write");
    data += n;
    size -= static_cast<size_t>(n);
  }
}

void readAll(int fd, char* data, size_t size) {
  while (size > 0) {
    const ssize_t n = read(fd, data, size);
    require(n > 0, "read");
    data += n;
    size -= static_cast<size_t>(n);
  }
}

// Something that answers each message with one of the same size.
class Answerer {
 public:
  virtual ~Answerer() = default;
  virtual void turn() = 0;
};

class BareAnswerer : public Answerer {
 public:
  BareAnswerer(plat::FileDescriptor fd, Wait wait, size_t size)
      : fd_(std::move(fd)), wait_(wait), size_(size), buffer_(65536) {
    plat::FileDescriptor::setNonBlocking(fd_.get());
  }
  void turn() override {
    wait();
    const ssize_t n = read(fd_.get(), buffer_.data(), buffer_.size());
    require(n > 0, "read");
    got_ += static_cast<size_t>(n);
    if (got_ < size_) return;
    got_ = 0;
    require(write(fd_.get(), buffer_.data(), size_) == static_cast<ssize_t>(size_), "write");
  }

 private:
  void wait() {
    if (wait_ == Wait::kPoll) {
      pollfd entry{fd_.get(), POLLIN, 0};
      require(poll(&entry, 1, -1) == 1, "poll");
    } else {
      fd_set readable;
      fd_set writable;
      fd_set exceptions;
      FD_ZERO(&readable);
      FD_ZERO(&writable);
      FD_ZERO(&exceptions);
      FD_SET(fd_.get(), &readable);
      require(select(fd_.get() + 1, &readable, &writable, &exceptions, nullptr) == 1, "select");
    }
  }

  plat::FileDescriptor fd_;
  Wait wait_;
  size_t size_;
  size_t got_ = 0;
  std::vector<char> buffer_;
};

constexpr char kName[] = "fbUpdateRequest";
constexpr size_t kEnvelope = 2 + 1 + sizeof kName - 1;

class ChannelAnswerer : public Answerer, private io::MsgIpc::Reader {
 public:
  ChannelAnswerer(plat::FileDescriptor fd, Wait wait, size_t size)
      : fd_(fd.get()), wait_(wait), body_(size - kEnvelope), ipc_("bench") {
    // As many readers as the agent has.
    for (const char* name :
         {"start", "stop", "fbUpdateRequest", "pointerEvent", "keyEvent", "clientCutText",
          "setParams", "setMonitor", "setDisplayMode", "SetXServerOwner", "setLogLevel"}) {
      registration_.add(name);
    }
    ipc_.attach(std::make_unique<io::FdIo>(std::move(fd)));
  }
  void turn() override {
    if (wait_ == Wait::kSelect) {
      loop_.process(-1);
    } else {
      pollfd entry{fd_, POLLIN, 0};
      require(poll(&entry, 1, -1) == 1, "poll");
      ipc_.processMessages();
    }
  }

 private:
  bool readMsg(const char*, rdr::InStream& in, io::MsgIpc&) override {
    in.readBytes(body_.data(), body_.size());
    rdr::OutStream& out = ipc_.writeMsg(kName);
    out.writeBytes(body_.data(), body_.size());
    ipc_.endMsg();
    return true;
  }

  int fd_;
  Wait wait_;
  std::vector<char> body_;
  io::FdSelectManager loop_;
  io::MsgIpc ipc_;
  io::MsgIpc::Registration registration_{ipc_, *this};
};

struct Pair {
  Pair() {
    int ends[2];
    require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "socketpair");
    subject.reset(ends[0]);
    peer.reset(ends[1]);
  }
  plat::FileDescriptor subject, peer;
};

std::string messageOf(size_t size) {
  const size_t payload = size - 2;
  std::string message{static_cast<char>(0x80 | payload >> 8), static_cast<char>(payload),
                      static_cast<char>(sizeof kName - 1)};
  message += kName;
  message.resize(size, 'b');
  return message;
}

std::unique_ptr<Answerer> makeAnswerer(bool ours, plat::FileDescriptor fd, Wait wait, size_t size) {
  if (ours) return std::make_unique<ChannelAnswerer>(std::move(fd), wait, size);
  return std::make_unique<BareAnswerer>(std::move(fd), wait, size);
}

void inlineTrip(benchmark::State& state, bool ours, Wait wait) {
  const size_t size = static_cast<size_t>(state.range(0));
  Pair pair;
  const auto answerer = makeAnswerer(ours, std::move(pair.subject), wait, size);
  const std::string message = messageOf(size);
  std::string answer(size, '\0');
  const auto trip = [&] {
    writeAll(pair.peer.get(), message.data(), size);
    answerer->turn();
    readAll(pair.peer.get(), answer.data(), size);
  };
  trip();
  require(!ours || answer == message, "answer");
  const size_t before = allocations;
  for (auto _ : state) trip();
  state.counters["allocations"] = static_cast<double>(allocations - before);
}

void threadedTrip(benchmark::State& state, bool ours, Wait wait) {
  const size_t size = static_cast<size_t>(state.range(0));
  Pair pair;
  const std::string message = messageOf(size);
  const auto answerer = makeAnswerer(ours, std::move(pair.subject), wait, size);
  // Keeps one message on its way.
  std::thread peer([&] {
    std::string answer(size, '\0');
    writeAll(pair.peer.get(), message.data(), size);
    for (;;) {
      size_t got = 0;
      while (got < size) {
        const ssize_t n = read(pair.peer.get(), answer.data() + got, size - got);
        if (n <= 0) return;
        got += static_cast<size_t>(n);
      }
      const ssize_t n = send(pair.peer.get(), message.data(), size, MSG_NOSIGNAL);
      if (n != static_cast<ssize_t>(size)) return;
    }
  });
  for (auto _ : state) answerer->turn();
  shutdown(pair.peer.get(), SHUT_RDWR);
  peer.join();
}

void add(const std::string& name, void (*trip)(benchmark::State&, bool, Wait), Wait wait,
         const std::vector<int64_t>& sizes, bool realTime) {
  for (const bool ours : {false, true}) {
    auto* const registered =
        benchmark::RegisterBenchmark((name + (ours ? "/ours" : "/bare")).c_str(), trip, ours, wait);
    for (const int64_t size : sizes) registered->Arg(size);
    if (realTime) registered->UseRealTime();
  }
}

}  // namespace

int main(int argc, char** argv) {
  add("inline-select", inlineTrip, Wait::kSelect, {64, 1024, 16384}, false);
  add("inline-poll", inlineTrip, Wait::kPoll, {64, 1024, 16384}, false);
  add("threads-select", threadedTrip, Wait::kSelect, {64}, true);
  add("threads-poll", threadedTrip, Wait::kPoll, {64}, true);
  benchmark::Initialize(&argc, argv);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
}
