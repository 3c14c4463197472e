#pragma once

#include "io/MsgIpc.h"
#include "svr/DisplayMode.h"

namespace svr {

// Reads the server's wishes for the screen's size ("setDisplayMode"). Tells it whether they can be
// fulfilled ("displayModesSupported") and, once, that the agent's modes have changed
// ("displayModesUpdated").
class AgentDisplayMode : private io::MsgIpc::Reader, private DisplayMode::Callback {
 public:
  // Registers with the channel, which is not owned. The display must be open.
  explicit AgentDisplayMode(io::MsgIpc& channel);
  ~AgentDisplayMode() override;
  AgentDisplayMode(const AgentDisplayMode&) = delete;
  AgentDisplayMode& operator=(const AgentDisplayMode&) = delete;

 private:
  bool readMsg(const char* name, rdr::InStream& in, io::MsgIpc& ipc) override;
  void detached(io::MsgIpc& ipc) override;
  void displayModesChanged() override;

  io::MsgIpc* channel_;
  bool toldOfChange_ = false;
  DisplayMode displayMode_;
};

}  // namespace svr
