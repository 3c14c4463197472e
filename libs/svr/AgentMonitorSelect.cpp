#include "svr/AgentMonitorSelect.h"

#include "svr/SDesktopX11.h"

namespace svr {

AgentMonitorSelect::AgentMonitorSelect(io::MsgIpc& channel, SDesktopX11& desktop)
    : desktop_(desktop), registration_(channel, *this, {"setMonitor"}) {}

bool AgentMonitorSelect::readMsg(const char*, rdr::InStream& in, io::MsgIpc&) {
  desktop_.setMonitorSelection(in.readString(kMaxSelection));
  return true;
}

}  // namespace svr
