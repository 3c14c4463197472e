#include "plat/log/LogNames.h"

namespace plat {

namespace {

const char* const kNames[] = {
    "AgentAppX11",
    "AgentMonitorSelect",
    "AgentServerX11",
    "Assertion",
    "ConfigParameter",
    "Configuration",
    "DeadKeyUtil",
    "DesktopUidMonitor",
    "DynamicFn",
    "ErrorCatcher",
    "FdIo",
    "FdOutStream",
    "FileConfig",
    "FilePtr",
    "KeyEventInterpreter",
    "LaunchProcess",
    "Localize",
    "LockFile",
    "PixelBufferX11",
    "ProcessEnumerator",
    "ProcessInfo",
    "ProcessMonitor",
    "Randr",
    "SDesktopX11",
    "SKeyboardX11",
    "SServerAgent",
    "SharedMemPosix",
    "SharedMemSysV",
    "SocketUtil",
    "TXClipboardMgr",
    "TXClipboardWindow",
    "TXWindow",
    "TcpIo",
    "Threading",
    "TimerManager",
    "TransactedFile",
    "UpdateScheduler",
    "ruvoagent",
};

}  // namespace

std::span<const char* const> knownLogSources() {
  return kNames;
}

}  // namespace plat
