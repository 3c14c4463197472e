#pragma once

#include "io/MsgIpc.h"
#include "plat/Exception.h"
#include "plat/log/LogSrc.h"

namespace svr {

// Sends one message whose body is written by body(rdr::OutStream&), which should do nothing else
// that can fail. A channel that cannot take it is logged and otherwise ignored: nobody who reports
// something stops because there is no one to hear it.
template <typename Body>
void sendMessage(io::MsgIpc& channel, plat::LogSrc& log, const char* name, Body body) {
  try {
    body(channel.writeMsg(name));
    channel.endMsg();
  } catch (const plat::Exception& e) {
    log.info("%s", e.text());
  }
}

inline void sendMessage(io::MsgIpc& channel, plat::LogSrc& log, const char* name) {
  sendMessage(channel, log, name, [](rdr::OutStream&) {});
}

}  // namespace svr
