#pragma once

#include <memory>

#include "io/Io.h"
#include "svr/AgentDisplayMode.h"
#include "svr/AgentMonitorSelect.h"
#include "svr/AgentServerX11.h"
#include "svr/AgentShmPermGetter.h"
#include "svr/SDesktopX11.h"

namespace svr {

// The agent: builds the components and passes on what they have to say to each other. The X display
// and the loop must exist.
class AgentAppX11 : private SDesktopX11::Callback, private tx::DesktopUidMonitor::Callback {
 public:
  // connection (may be null) leads to the server. The log destination is not owned.
  AgentAppX11(bool serviceMode, io::LogDestIpc& logDest, std::unique_ptr<io::Io> connection);

 private:
  // SDesktopX11::Callback
  void monitorsUpdated(const std::vector<plat::DisplayInfo>& monitors,
                       const plat::String& parameter, const plat::String& inForce) override;
  void clientCutText(const char* text, size_t length) override;
  void captureBroken(bool broken) override;
  const plat::SharedMemPermissions* sharedMemPermissions() override;
  // tx::DesktopUidMonitor::Callback
  void desktopUidChanged(uid_t userId, const std::string& xauthority) override;

  SDesktopX11 desktop_;
  AgentServerX11 server_;
  AgentShmPermGetter shmPermissions_;
  AgentDisplayMode displayMode_;
  AgentMonitorSelect monitorSelect_;
};

}  // namespace svr
