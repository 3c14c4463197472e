#pragma once

#include "io/MsgIpc.h"
#include "svr/DisplayMode.h"
#include "svr/OutgoingMessages.h"

namespace svr {

// Reads the server's wishes for the screen's size ("setDisplayMode"). Tells it whether they can be
// fulfilled and, once, that the agent's modes have changed.
class AgentDisplayMode : private io::MsgIpc::Reader, private DisplayMode::Callback {
 public:
  // Neither is owned. The display must be open.
  AgentDisplayMode(io::MsgIpc& channel, OutgoingMessages& messages);
  ~AgentDisplayMode() override = default;
  AgentDisplayMode(const AgentDisplayMode&) = delete;
  AgentDisplayMode& operator=(const AgentDisplayMode&) = delete;

 private:
  bool readMsg(const char* name, rdr::InStream& in, io::MsgIpc& ipc) override;
  void displayModesChanged() override;

  OutgoingMessages& messages_;
  bool toldOfChange_ = false;
  DisplayMode displayMode_;
  io::MsgIpc::Registration registration_;
};

}  // namespace svr
