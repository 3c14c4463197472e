#pragma once

#include "io/MsgIpc.h"
#include "svr/MonitorSelectCallback.h"
#include "svr/MonitorSelectResponse.h"

namespace svr {

// Reads the server's choice of monitors ("setMonitor") and tells it which there are
// ("monitorsUpdated").
class AgentMonitorSelect : private io::MsgIpc::Reader, public MonitorSelectResponse {
 public:
  // Longest selection, in bytes.
  static constexpr size_t kMaxSelection = 1024;

  // Registers with the channel. Neither is owned.
  AgentMonitorSelect(io::MsgIpc& channel, MonitorSelectCallback& desktop);
  ~AgentMonitorSelect() override;
  AgentMonitorSelect(const AgentMonitorSelect&) = delete;
  AgentMonitorSelect& operator=(const AgentMonitorSelect&) = delete;

  void monitorsUpdated(const std::vector<plat::DisplayInfo>& monitors,
                       const plat::String& parameter, const plat::String& inForce) override;

 private:
  bool readMsg(const char* name, rdr::InStream& in, io::MsgIpc& ipc) override;
  void detached(io::MsgIpc& ipc) override;

  io::MsgIpc* channel_;
  MonitorSelectCallback& desktop_;
};

}  // namespace svr
