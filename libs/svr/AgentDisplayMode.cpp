#include "svr/AgentDisplayMode.h"

#include "plat/log/LogSrc.h"
#include "svr/SendMessage.h"

namespace svr {

namespace {

plat::LogSrc vlog("Randr");

constexpr const char* kMessage = "setDisplayMode";

}  // namespace

AgentDisplayMode::AgentDisplayMode(io::MsgIpc& channel) : channel_(&channel), displayMode_(*this) {
  channel_->addReader(kMessage, this);
  const bool supported = displayMode_.isAvailable();
  sendMessage(*channel_, vlog, "displayModesSupported",
              [supported](rdr::OutStream& out) { out.writeU8(supported ? 1 : 0); });
  if (displayMode_.hasListedSizes()) displayMode_.updateModes();
}

AgentDisplayMode::~AgentDisplayMode() {
  if (channel_) channel_->removeReader(kMessage);
}

bool AgentDisplayMode::readMsg(const char*, rdr::InStream& in, io::MsgIpc&) {
  const uint32_t width = in.readU32();
  const uint32_t height = in.readU32();
  displayMode_.setDisplayMode(width, height);
  return true;
}

void AgentDisplayMode::detached(io::MsgIpc& ipc) {
  if (channel_ == &ipc) channel_ = nullptr;
}

void AgentDisplayMode::displayModesChanged() {
  if (toldOfChange_ || !channel_) return;
  toldOfChange_ = true;
  sendMessage(*channel_, vlog, "displayModesUpdated");
}

}  // namespace svr
