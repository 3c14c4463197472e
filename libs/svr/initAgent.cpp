#include "svr/initAgent.h"

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iostream>
#include <memory>
#include <new>
#include <optional>
#include <string>

#include "io/FdIo.h"
#include "io/FdSelectManager.h"
#include "io/LogDestIpc.h"
#include "loc/Localizer.h"
#include "os/AppLoop.h"
#include "os/LaunchedPipe.h"
#include "os/SignalHandler.h"
#include "plat/Exception.h"
#include "plat/Files.h"
#include "plat/Translate.h"
#include "plat/config/ConfigStoreFile.h"
#include "plat/config/Configuration.h"
#include "plat/config/XmlConfig.h"
#include "plat/log/LogManager.h"
#include "plat/log/LogSrc.h"
#include "svr/AgentAppX11.h"
#include "svr/AgentLoop.h"
#include "svr/Watchdog.h"
#include "svr/input/InputTrace.h"
#include "tx/TXDisplay.h"

namespace svr {

namespace {

plat::LogSrc vlog("AgentAppX11");

constexpr int kEndingSignals[] = {SIGINT, SIGTERM, SIGHUP};

// Brings the signals into the loop that end it.
class SignalBridge final : private os::SignalHandler::Callback {
 public:
  SignalBridge(plat::LogSrc* log, const Watchdog& watchdog) : log_(log) {
    os::SignalHandler::setAlarm(watchdog.alarmFd());
    for (const int signal : kEndingSignals) os::SignalHandler::instance().add(signal, this);
  }
  ~SignalBridge() {
    sigset_t ending, former;
    sigemptyset(&ending);
    for (const int signal : kEndingSignals) sigaddset(&ending, signal);
    pthread_sigmask(SIG_BLOCK, &ending, &former);
    os::SignalHandler::instance().remove(this);
    os::SignalHandler::setAlarm(-1);
    // Only the status is left to be told; of a failure there is more to say, which may take long.
    if (std::uncaught_exceptions() == 0) {
      for (const int signal : kEndingSignals) std::signal(signal, SIG_IGN);
    }
    pthread_sigmask(SIG_SETMASK, &former, nullptr);
  }
  SignalBridge(const SignalBridge&) = delete;
  SignalBridge& operator=(const SignalBridge&) = delete;

 private:
  void gotSignal(int signal) override {
    log_->info("Got signal %s", os::SignalHandler::name(signal).c_str());
    os::AppLoop::quit(0);
  }

  plat::LogSrc* log_;
};

// Whether the program's own file can be told: from the first argument, the search path or the
// system.
bool findExecutable(const char* argv0) {
  const std::string name = argv0 ? argv0 : "";
  const bool isPath = name.find('/') != std::string::npos;
  if (isPath ? access(name.c_str(), X_OK) == 0 : !plat::findProgram(name).empty()) return true;
  char target[4096];
  return readlink("/proc/self/exe", target, sizeof target) > 0;
}

bool isRunMode(const char* argument) {
  for (const char* mode : {"service", "user", "virtual"}) {
    if (argument && strcmp(argument, mode) == 0) return true;
  }
  return false;
}

void printUsage(std::ostream& out, bool all) {
  out << "ruvoagent " RUVO_VERSION "\n"
      << plat::translate(plat::MessageId{"plat_usage_label"}).c_str()
      << " ruvoagent {service|user|virtual} [-paramsxml] [-lppDebug] [-fork] [-hash <hash>]"
         " <pipe name> [parameters]\n\n";
  plat::LogManager& logs = plat::LogManager::instance();
  plat::Configuration::global().printUsage(out, all, logs.sourceNames(), logs.destNames());
  out.flush();
}

[[noreturn]] void printHelp(plat::Configuration::HelpMode mode) {
  if (mode == plat::Configuration::HelpMode::kXml) {
    plat::XmlConfig::write(std::cout, plat::Configuration::global());
  } else {
    printUsage(std::cout, mode == plat::Configuration::HelpMode::kAll);
  }
  std::cout.flush();
  exit(0);
}

// Also on standard error as long as the server cannot hear of it.
void reportError(const io::LogDestIpc& logDest, const plat::Exception& error) {
  if (!logDest.isAttached()) fprintf(stderr, "%s\n", error.text());
  vlog.error("%s", error.text());
}

int runAgent(bool serviceMode, io::LogDestIpc& logDest, std::unique_ptr<io::Io> connection,
             Watchdog& watchdog) {
  int status = 1;
  bool displayLost = false;
  // Until all is tidied up, signals do not end the program by themselves.
  std::optional<SignalBridge> signals;
  {
    os::AppLoop loop(std::make_unique<AgentLoop>(watchdog));
    signals.emplace(&vlog, watchdog);
    AgentAppX11 app(serviceMode, logDest, std::move(connection));
    try {
      status = loop.run();
    } catch (const plat::Exception& e) {
      // The server can still be told.
      reportError(logDest, e);
    }
    displayLost = tx::TXDisplay::isLost();
  }
  if (displayLost) InputTrace::undoAfterLoss();
  return status;
}

}  // namespace

int initAgent(int argc, char** argv) {
  loc::install();
  if (!findExecutable(argc > 0 ? argv[0] : nullptr)) {
    fputs("Error: could not find program executable\n", stderr);
    return 1;
  }
  if (argc == 2 && (strcmp(argv[1], "--version") == 0 || strcmp(argv[1], "-V") == 0)) {
    puts("ruvoagent " RUVO_VERSION);
    return 0;
  }
  if (argc < 2 || !isRunMode(argv[1])) {
    fprintf(stderr, "%s\n",
            plat::translate(plat::MessageId{"plat_this_program_not_directly"}).c_str());
    return 1;
  }
  plat::Configuration& configuration = plat::Configuration::global();
  if (argc > 2 && strcmp(argv[2], "-paramsxml") == 0) {
    plat::XmlConfig::write(std::cout, configuration);
    std::cout.flush();
    return 0;
  }

  io::FdSelectManager descriptors;
  io::LogDestIpc logDest;
  try {
    plat::LogManager::instance().setStartUpSpec("*:ipc:200");
    nbutil::ConfigStoreFile(nbutil::ConfigStoreFile::standardDirectories()).load(configuration);

    os::LaunchedPipe pipe(argc, argv, 2);
    plat::FileDescriptor fd = pipe.open();
    Watchdog watchdog(fd ? fd.get() : -1);
    std::unique_ptr<io::Io> connection;
    if (fd) connection = std::make_unique<io::FdIo>(std::move(fd));

    try {
      configuration.processArgs(argv + pipe.nextArgument(), printHelp);
    } catch (const plat::Exception& e) {
      if (strcmp(e.kind(), "BadCmdLineArg") != 0) throw;
      fprintf(stderr, "%s\n", e.text());
      printUsage(std::cout, false);
      return 1;
    }
    configuration.logValues();
    return runAgent(strcmp(argv[1], "service") == 0, logDest, std::move(connection), watchdog);
  } catch (const plat::Exception& e) {
    reportError(logDest, e);
    return 1;
  } catch (const std::bad_alloc&) {
    reportError(logDest, plat::Exception("Out of memory"));
    return 1;
  }
}

}  // namespace svr
