#pragma once

#include <memory>

#include "io/Io.h"
#include "svr/SClipboardX11.h"
#include "svr/SServerAgent.h"
#include "tx/DesktopUidMonitor.h"

namespace svr {

class SDesktopX11;

// Connects the conversation with the server to the rest of the agent.
class AgentServerX11 : public SServerAgent::Callback,
                       public SClipboardX11::Callback,
                       public tx::DesktopUidMonitor::Callback {
 public:
  // The desktop, the application and the log destination are not owned. As root, who owns the
  // desktop is found out and told to the application and the server. With a connection (may be
  // null) the server is greeted at once.
  AgentServerX11(SDesktopX11& desktop, bool isRoot, tx::DesktopUidMonitor::Callback& application,
                 io::LogDestIpc& logDest, std::unique_ptr<io::Io> connection);
  // Stops the desktop first of all.
  ~AgentServerX11() override;
  AgentServerX11(const AgentServerX11&) = delete;
  AgentServerX11& operator=(const AgentServerX11&) = delete;

  void desktopStarted(bool started) override;
  void serverDisconnected() override;
  void clipboardChanged(const char* text, size_t length) override;
  void desktopUidChanged(uid_t userId, const std::string& xauthority) override;

  io::MsgIpc& channel() { return endpoint_.channel(); }
  // Null when the display is not open.
  SClipboardX11* clipboard() { return clipboard_.get(); }

 private:
  tx::DesktopUidMonitor::Callback& application_;
  std::unique_ptr<SClipboardX11> clipboard_;
  SServerAgent endpoint_;
  std::unique_ptr<tx::DesktopUidMonitor> ownerMonitor_;
};

}  // namespace svr
