#pragma once

#include <memory>

#include "io/Io.h"
#include "svr/SClipboardX11.h"
#include "svr/SServerAgent.h"
#include "tx/DesktopUidMonitor.h"

namespace svr {

class SDesktopX11;

// Connects the conversation with the server to the rest of the agent: the clipboard, the desktop's
// owner, the loop that ends with the channel.
class AgentServerX11 : public SServerAgent::Callback,
                       public SClipboardX11::Callback,
                       public tx::DesktopUidMonitor::Callback {
 public:
  // The desktop and the log destination are not owned. As root, who owns the desktop is found out
  // and told to the desktop and the server. With a connection (may be null) the server is greeted
  // at once.
  AgentServerX11(SDesktopX11& desktop, bool isRoot, io::LogDestIpc& logDest,
                 std::unique_ptr<io::Io> connection);
  // Stops the desktop first of all.
  ~AgentServerX11() override;
  AgentServerX11(const AgentServerX11&) = delete;
  AgentServerX11& operator=(const AgentServerX11&) = delete;

  io::MsgIpc& channel() { return endpoint_.channel(); }
  OutgoingMessages& messages() { return endpoint_.messages(); }

 private:
  // SServerAgent::Callback
  void desktopStarted(bool started) override;
  void clientCutText(std::string_view text) override;
  void serverDisconnected() override;
  // SClipboardX11::Callback
  void clipboardChanged(const char* text, size_t length) override;
  // tx::DesktopUidMonitor::Callback
  void desktopUidChanged(uid_t userId, const std::string& xauthority) override;

  SDesktopX11& desktop_;
  std::unique_ptr<SClipboardX11> clipboard_;  // null when the display is not open
  SServerAgent endpoint_;
  std::unique_ptr<tx::DesktopUidMonitor> ownerMonitor_;
};

}  // namespace svr
