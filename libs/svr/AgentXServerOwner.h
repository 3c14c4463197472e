#pragma once

#include "io/MsgIpc.h"
#include "plat/shm/SharedMemPermissions.h"

namespace svr {

// Reads the message "SetXServerOwner": who must be able to map the shared memory of this process.
class AgentXServerOwner : private io::MsgIpc::Reader {
 public:
  // Neither the channel nor the record, which is written to, is owned.
  AgentXServerOwner(io::MsgIpc& channel, plat::SharedMemPermissions& owner);
  ~AgentXServerOwner() override = default;
  AgentXServerOwner(const AgentXServerOwner&) = delete;
  AgentXServerOwner& operator=(const AgentXServerOwner&) = delete;

 private:
  bool readMsg(const char* name, rdr::InStream& in, io::MsgIpc& ipc) override;

  plat::SharedMemPermissions& owner_;
  io::MsgIpc::Registration registration_;
};

}  // namespace svr
