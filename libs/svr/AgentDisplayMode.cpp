#include "svr/AgentDisplayMode.h"

namespace svr {

AgentDisplayMode::AgentDisplayMode(io::MsgIpc& channel, OutgoingMessages& messages)
    : messages_(messages), displayMode_(*this), registration_(channel, *this, {"setDisplayMode"}) {
  messages_.displayModesSupported(displayMode_.isAvailable());
  if (displayMode_.hasListedSizes()) displayMode_.updateModes();
}

bool AgentDisplayMode::readMsg(const char*, rdr::InStream& in, io::MsgIpc&) {
  const uint32_t width = in.readU32();
  const uint32_t height = in.readU32();
  displayMode_.setDisplayMode(width, height);
  return true;
}

void AgentDisplayMode::displayModesChanged() {
  if (toldOfChange_) return;
  toldOfChange_ = true;
  messages_.displayModesUpdated();
}

}  // namespace svr
