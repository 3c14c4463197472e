#include "svr/AgentAppX11.h"

#include <unistd.h>

namespace svr {

AgentAppX11::AgentAppX11(bool serviceMode, io::LogDestIpc& logDest,
                         std::unique_ptr<io::Io> connection)
    : desktop_(memoryOwner_, serviceMode),
      server_(desktop_, getuid() == 0, logDest, std::move(connection)),
      shmPermGetter_(server_.channel(), memoryOwner_),
      displayMode_(server_.channel(), server_.messages()),
      monitorSelect_(server_.channel(), desktop_) {}

}  // namespace svr
