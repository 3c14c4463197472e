#include "svr/AgentMonitorSelect.h"

#include "svr/SendMessage.h"

namespace svr {

namespace {

plat::LogSrc vlog("AgentMonitorSelect");

constexpr const char* kMessage = "setMonitor";

}  // namespace

AgentMonitorSelect::AgentMonitorSelect(io::MsgIpc& channel, MonitorSelectCallback& desktop)
    : channel_(&channel), desktop_(desktop) {
  channel_->addReader(kMessage, this);
}

AgentMonitorSelect::~AgentMonitorSelect() {
  if (channel_) channel_->removeReader(kMessage);
}

bool AgentMonitorSelect::readMsg(const char*, rdr::InStream& in, io::MsgIpc&) {
  desktop_.setMonitorSelection(in.readString(kMaxSelection));
  return true;
}

void AgentMonitorSelect::detached(io::MsgIpc& ipc) {
  if (channel_ == &ipc) channel_ = nullptr;
}

void AgentMonitorSelect::monitorsUpdated(const std::vector<plat::DisplayInfo>& monitors,
                                         const plat::String& parameter,
                                         const plat::String& inForce) {
  if (!channel_) return;
  sendMessage(*channel_, vlog, "monitorsUpdated", [&](rdr::OutStream& out) {
    out.writeU8(static_cast<uint8_t>(monitors.size()));
    for (const plat::DisplayInfo& monitor : monitors) monitor.write(out);
    out.writeString(parameter.view());
    out.writeString(inForce.view());
  });
}

}  // namespace svr
