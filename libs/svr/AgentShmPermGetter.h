#pragma once

#include "io/MsgIpc.h"
#include "plat/shm/SharedMemPermissions.h"

namespace svr {

// Reads the message "SetXServerOwner": who must be able to map the shared memory of this process.
class AgentShmPermGetter : private io::MsgIpc::Reader {
 public:
  // Registers with the channel, which is not owned.
  explicit AgentShmPermGetter(io::MsgIpc& channel);
  ~AgentShmPermGetter() override;
  AgentShmPermGetter(const AgentShmPermGetter&) = delete;
  AgentShmPermGetter& operator=(const AgentShmPermGetter&) = delete;

  // Null until the server has told.
  const plat::SharedMemPermissions* permissions() const {
    return permissions_.uid == -1 ? nullptr : &permissions_;
  }

 private:
  bool readMsg(const char* name, rdr::InStream& in, io::MsgIpc& ipc) override;
  void detached(io::MsgIpc& ipc) override;

  io::MsgIpc* channel_;
  plat::SharedMemPermissions permissions_;
};

}  // namespace svr
