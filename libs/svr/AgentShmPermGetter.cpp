#include "svr/AgentShmPermGetter.h"

namespace svr {

namespace {

// Ids travel as 64 bits, of which the low half counts.
int32_t readId(rdr::InStream& in) {
  return static_cast<int32_t>(static_cast<uint32_t>(in.readU64()));
}

}  // namespace

AgentShmPermGetter::AgentShmPermGetter(io::MsgIpc& channel, plat::SharedMemPermissions& owner)
    : owner_(owner), registration_(channel, *this, {"SetXServerOwner"}) {}

bool AgentShmPermGetter::readMsg(const char*, rdr::InStream& in, io::MsgIpc&) {
  const int32_t uid = readId(in);
  owner_.gid = readId(in);
  owner_.uid = uid;
  return true;
}

}  // namespace svr
