#pragma once

#include "io/MsgIpc.h"

namespace svr {

class SDesktopX11;

// Reads the server's choice of monitors ("setMonitor").
class AgentMonitorSelect : private io::MsgIpc::Reader {
 public:
  // Longest selection, in bytes.
  static constexpr size_t kMaxSelection = 1024;

  // Neither is owned.
  AgentMonitorSelect(io::MsgIpc& channel, SDesktopX11& desktop);
  ~AgentMonitorSelect() override = default;
  AgentMonitorSelect(const AgentMonitorSelect&) = delete;
  AgentMonitorSelect& operator=(const AgentMonitorSelect&) = delete;

 private:
  bool readMsg(const char* name, rdr::InStream& in, io::MsgIpc& ipc) override;

  SDesktopX11& desktop_;
  io::MsgIpc::Registration registration_;
};

}  // namespace svr
