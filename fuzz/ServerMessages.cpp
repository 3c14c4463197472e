// What a server says to its agent: every message, in pieces of as many bytes as the first byte
// tells.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>

#include "Check.h"
#include "Pieces.h"
#include "io/FdIo.h"
#include "io/FdSelectManager.h"
#include "plat/Assert.h"
#include "plat/log/LogManager.h"
#include "plat/shm/SharedMem.h"
#include "rfb/UpdateTracker.h"
#include "svr/AgentShmPermGetter.h"
#include "svr/ByteReader.h"
#include "svr/SDesktop.h"
#include "svr/SServerAgent.h"

namespace {

// Answers each request at once, and what the server asks of a desktop must make sense to it.
class Desktop : public svr::SDesktop, public svr::SServerAgent::Callback {
 public:
  void start(svr::SServer& server) override {
    check(!server_);
    server_ = &server;
  }
  void stop() override { server_ = nullptr; }
  void framebufferUpdateRequest() override {
    if (!server_) return;
    check(server_->isUpdateRequested());
    rfb::UpdateInfo update;
    update.changed = rfb::Rect(0, 0, 64, 48);
    server_->writeUpdate(update);
  }
  rfb::Rect getRect() override { return {0, 0, 64, 48}; }

  void desktopStarted(bool started) override { check(started == (server_ != nullptr)); }
  void clientCutText(std::string_view text) override {
    check(text.size() <= svr::ByteReader::kMaxSize);
  }
  void serverDisconnected() override {
    check(!server_);
    ++disconnected;
  }

  int disconnected = 0;

 private:
  svr::SServer* server_ = nullptr;
};

// The one thing that a server can say to end its agent.
struct NegativeLength {};

void talk(const uint8_t* data, size_t size) {
  support::SocketPair pair;
  io::FdSelectManager loop;
  Desktop desktop;
  svr::SServerAgent agent(&desktop, &desktop, nullptr);
  plat::SharedMemPermissions owner;
  const svr::AgentShmPermGetter permissions(agent.channel(), owner);
  // Parameters have a target of their own; here they would last, and name files.
  agent.channel().removeReader("setParams");
  agent.accept(std::make_unique<io::FdIo>(std::move(pair.ours)));
  const auto read = [&] {
    while (loop.process(0)) {
    }
    return agent.channel().isConnected();
  };
  deliverPieces(data, size, pair, read);
  // However the input went, the end of the stream is noticed, once.
  check(!read() && desktop.disconnected == 1);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  plat::LogManager::instance().setLogSpec("");
  plat::setAssertHandler([](const char* line) {
    check(std::string_view(line).find("len >= 0") != std::string_view::npos);
    throw NegativeLength();
  });
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  try {
    talk(data, size);
  } catch (const NegativeLength&) {
  }
  return 0;
}
