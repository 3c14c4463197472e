#pragma once

#include <memory>

#include "io/Io.h"
#include "plat/shm/SharedMemPermissions.h"
#include "svr/AgentDisplayMode.h"
#include "svr/AgentMonitorSelect.h"
#include "svr/AgentServerX11.h"
#include "svr/AgentShmPermGetter.h"
#include "svr/SDesktopX11.h"

namespace svr {

// The agent: its components, in the order in which they are built. The X display and the loop must
// exist.
class AgentAppX11 {
 public:
  // connection (may be null) leads to the server. The log destination is not owned.
  AgentAppX11(bool serviceMode, io::LogDestIpc& logDest, std::unique_ptr<io::Io> connection);

 private:
  plat::SharedMemPermissions memoryOwner_;
  SDesktopX11 desktop_;
  AgentServerX11 server_;
  AgentShmPermGetter shmPermGetter_;
  AgentDisplayMode displayMode_;
  AgentMonitorSelect monitorSelect_;
};

}  // namespace svr
