#pragma once

#include "io/MsgIpc.h"
#include "plat/shm/SharedMemPermissions.h"

namespace svr {

// Reads the message "SetXServerOwner": who must be able to map the shared memory of this process.
class AgentShmPermGetter : private io::MsgIpc::Reader {
 public:
  // Neither the channel nor the record, which is written to, is owned.
  AgentShmPermGetter(io::MsgIpc& channel, plat::SharedMemPermissions& owner);
  ~AgentShmPermGetter() override = default;
  AgentShmPermGetter(const AgentShmPermGetter&) = delete;
  AgentShmPermGetter& operator=(const AgentShmPermGetter&) = delete;

 private:
  bool readMsg(const char* name, rdr::InStream& in, io::MsgIpc& ipc) override;

  plat::SharedMemPermissions& owner_;
  io::MsgIpc::Registration registration_;
};

}  // namespace svr
