#include "svr/AgentAppX11.h"

#include <unistd.h>

#include "svr/SendMessage.h"
#include "tx/ServerTime.h"

namespace svr {

namespace {

plat::LogSrc vlog("AgentAppX11");

}  // namespace

AgentAppX11::AgentAppX11(bool serviceMode, io::LogDestIpc& logDest,
                         std::unique_ptr<io::Io> connection)
    : desktop_(this, serviceMode),
      server_(desktop_, getuid() == 0, *this, logDest, std::move(connection)),
      shmPermissions_(server_.channel()),
      displayMode_(server_.channel()),
      monitorSelect_(server_.channel(), desktop_.monitorSelect()) {}

void AgentAppX11::monitorsUpdated(const std::vector<plat::DisplayInfo>& monitors,
                                  const plat::String& parameter, const plat::String& inForce) {
  monitorSelect_.monitorsUpdated(monitors, parameter, inForce);
}

void AgentAppX11::clientCutText(const char* text, size_t length) {
  SClipboardX11* const clipboard = server_.clipboard();
  if (clipboard) clipboard->setText({text, length}, tx::getServerTime());
}

void AgentAppX11::captureBroken(bool broken) {
  sendMessage(server_.channel(), vlog, "captureBroken",
              [broken](rdr::OutStream& out) { out.writeU8(broken ? 1 : 0); });
}

const plat::SharedMemPermissions* AgentAppX11::sharedMemPermissions() {
  return shmPermissions_.permissions();
}

void AgentAppX11::desktopUidChanged(uid_t, const std::string&) {
  if (!desktop_.isWaitingForWindowManager()) return;
  vlog.debug("Window manager has started; using XFixes");
  desktop_.windowManagerStarted();
}

}  // namespace svr
