#include "tx/DesktopUidMonitor.h"

#include <X11/Xatom.h>

#include <climits>
#include <map>
#include <utility>

#include "os/ProcessInfo.h"
#include "plat/log/LogSrc.h"
#include "tx/Atoms.h"
#include "tx/ErrorCatcher.h"
#include "tx/TXDisplay.h"
#include "tx/XClients.h"
#include "tx/XResources.h"

namespace tx {

namespace {

plat::LogSrc vlog("DesktopUidMonitor");

// The first item of a property of 32-bit items; nothing when there is none of this type.
std::optional<uint32_t> firstItem(Window window, Atom property, Atom type) {
  Atom actualType = None;
  int format = 0;
  unsigned long count = 0;
  unsigned long left = 0;
  unsigned char* data = nullptr;
  const int status = XGetWindowProperty(TXDisplay::display(), window, property, 0, 1, False, type,
                                        &actualType, &format, &count, &left, &data);
  const XMemory<unsigned char> owned(data);
  if (status != Success || actualType != type || format != 32 || count < 1) return std::nullopt;
  // Xlib keeps such items as longs.
  return static_cast<uint32_t>(*reinterpret_cast<const unsigned long*>(data));
}

// Windows of other types, such as the desktop's own, can belong to any user.
bool countsForOwner(Window window) {
  const std::optional<uint32_t> type =
      firstItem(window, internAtom("_NET_WM_WINDOW_TYPE"), XA_ATOM);
  return !type || *type == internAtom("_NET_WM_WINDOW_TYPE_NORMAL") ||
         *type == internAtom("_NET_WM_WINDOW_TYPE_DOCK");
}

}  // namespace

DesktopUidMonitor::DesktopUidMonitor(Callback* callback) : callback_(callback), timer_(this) {
  vlog.info("Starting desktop uid monitor");
  timer_.start(0);
}

void DesktopUidMonitor::timerCallback(plat::Timer&) {
  if (!TXDisplay::isOpen()) return;
  if (pending_.empty()) {
    processes_.clear();
    askForClients();
    pending_.push_back(TXDisplay::root());
  }
  walkWindows();
  if (!pending_.empty()) {
    timer_.start(0);
    return;
  }
  timer_.start(kIntervalMs);
  const std::optional<Owner> found = ownerOf(processes_);
  if (!found || owner_ == found->userId) return;
  owner_ = found->userId;
  vlog.info("Desktop user is %d", static_cast<int>(found->userId));
  callback_->desktopUidChanged(found->userId, found->xauthority);
}

void DesktopUidMonitor::askForClients() {
  clients_ = localClientProcesses();
  if (clients_ || std::exchange(isUncertain_, true)) return;
  vlog.info("X-Resource extension not present - taking windows' word for their processes");
}

void DesktopUidMonitor::walkWindows() {
  // Windows vanish all the time.
  const ErrorCatcher trap;
  for (int i = 0; i < kWindowsPerTurn && !pending_.empty(); ++i) {
    const Window window = pending_.back();
    pending_.pop_back();
    look(window);
  }
}

void DesktopUidMonitor::look(Window window) {
  Window root = None;
  Window parent = None;
  Window* children = nullptr;
  unsigned count = 0;
  if (!XQueryTree(TXDisplay::display(), window, &root, &parent, &children, &count)) return;
  const XMemory<Window> owned(children);
  pending_.insert(pending_.end(), children, children + count);

  const std::optional<uint32_t> pid = firstItem(window, internAtom("_NET_WM_PID"), XA_CARDINAL);
  if (!pid || *pid == 0 || *pid > INT_MAX) return;
  const auto process = static_cast<pid_t>(*pid);
  if (clients_) {
    const auto client = clients_->find(clientOf(window));
    if (client == clients_->end() || client->second != process) return;
  }
  if (countsForOwner(window)) processes_.insert(process);
}

std::optional<DesktopUidMonitor::Owner> DesktopUidMonitor::ownerOf(
    const std::set<pid_t>& processes) {
  struct User {
    int processes = 0;
    std::string xauthority;
  };
  std::map<uid_t, User> users;
  for (const pid_t pid : processes) {
    const os::ProcessInfo process(pid);
    const std::optional<uid_t> id = process.userId();
    if (!id) continue;
    User& user = users[*id];
    user.processes++;
    if (user.xauthority.empty()) user.xauthority = process.environment("XAUTHORITY");
  }
  std::optional<Owner> owner;
  int most = 0;
  for (auto& [id, user] : users) {
    if (user.processes <= most) continue;
    most = user.processes;
    owner = Owner{id, std::move(user.xauthority)};
  }
  return owner;
}

}  // namespace tx
