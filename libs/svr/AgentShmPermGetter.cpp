#include "svr/AgentShmPermGetter.h"

namespace svr {

namespace {

constexpr const char* kMessage = "SetXServerOwner";

// Ids travel as 64 bits, of which the low half counts.
int32_t readId(rdr::InStream& in) {
  return static_cast<int32_t>(static_cast<uint32_t>(in.readU64()));
}

}  // namespace

AgentShmPermGetter::AgentShmPermGetter(io::MsgIpc& channel) : channel_(&channel) {
  channel_->addReader(kMessage, this);
}

AgentShmPermGetter::~AgentShmPermGetter() {
  if (channel_) channel_->removeReader(kMessage);
}

bool AgentShmPermGetter::readMsg(const char*, rdr::InStream& in, io::MsgIpc&) {
  const int32_t uid = readId(in);
  permissions_.gid = readId(in);
  permissions_.uid = uid;
  return true;
}

void AgentShmPermGetter::detached(io::MsgIpc& ipc) {
  if (channel_ == &ipc) channel_ = nullptr;
}

}  // namespace svr
