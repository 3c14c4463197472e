#include "svr/AgentServerX11.h"

#include "os/AppLoop.h"
#include "plat/log/LogSrc.h"
#include "svr/SDesktopX11.h"
#include "tx/ServerTime.h"
#include "tx/TXDisplay.h"

namespace svr {

namespace {

plat::LogSrc vlog("AgentServerX11");

}  // namespace

AgentServerX11::AgentServerX11(SDesktopX11& desktop, bool isRoot, io::LogDestIpc& logDest,
                               std::unique_ptr<io::Io> connection)
    : desktop_(desktop),
      clipboard_(tx::TXDisplay::isOpen() ? std::make_unique<SClipboardX11>(this) : nullptr),
      endpoint_(this, &desktop, &logDest) {
  if (isRoot && tx::TXDisplay::isOpen()) {
    ownerMonitor_ = std::make_unique<tx::DesktopUidMonitor>(this);
  }
  if (connection) endpoint_.accept(std::move(connection));
}

AgentServerX11::~AgentServerX11() {
  endpoint_.stopDesktop();
}

void AgentServerX11::desktopStarted(bool started) {
  if (clipboard_) clipboard_->setMonitoring(started);
}

void AgentServerX11::clientCutText(std::string_view text) {
  if (clipboard_) clipboard_->setText(text, tx::getServerTime());
}

void AgentServerX11::serverDisconnected() {
  vlog.info("Quitting on server disconnect");
  os::AppLoop::quit(0);
}

void AgentServerX11::clipboardChanged(const char* text, size_t length) {
  endpoint_.serverCutText(text, length);
}

void AgentServerX11::desktopUidChanged(uid_t userId, const std::string& xauthority) {
  desktop_.desktopOwnerChanged();
  messages().desktopUidChanged(userId, xauthority);
}

}  // namespace svr
