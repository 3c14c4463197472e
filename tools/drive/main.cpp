#include <signal.h>

#include <CLI/CLI.hpp>
#include <cstdio>

#include "Commands.h"
#include "Session.h"
#include "plat/Exception.h"

namespace {

volatile sig_atomic_t interruptedFlag = 0;

void onSignal(int) {
  interruptedFlag = 1;
}

constexpr int badUsage = 2;
constexpr int failed = 1;

}  // namespace

bool drive::interrupted() {
  return interruptedFlag != 0;
}

int main(int argc, char** argv) {
  signal(SIGPIPE, SIG_IGN);
  struct sigaction action {};
  action.sa_handler = onSignal;  // without SA_RESTART: the wait ends
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);

  CLI::App app("Starts a ruvoagent in an X11 desktop and drives it as a server would.",
               "ruvodrive");
  app.set_version_flag("--version", std::string("ruvodrive ") + RUVO_VERSION);
  app.require_subcommand(1, 2);
  app.fallthrough();

  drive::SessionOptions session;
  app.add_option("--display", session.display, "X display of the desktop (default: $DISPLAY)");
  app.add_option("--mode", session.mode, "Run mode of the agent")
      ->check(CLI::IsMember({"service", "user", "virtual"}))
      ->capture_default_str();
  app.add_option("--param", session.parameters, "A parameter of the agent, as Name=Value")
      ->take_all()
      ->allow_extra_args(false)
      ->check([](const std::string& text) {
        const size_t equals = text.find('=');
        return equals == 0 || equals == std::string::npos ? "'" + text + "' is not Name=Value" : "";
      });
  app.add_option("--agent", session.agent, "The agent's program (default: the one beside this)");

  drive::addViewCommands(app, session);
  drive::addInputCommands(app, session);
  drive::addClipCommands(app, session);
  drive::addMonitorCommands(app, session);
  drive::addResizeCommand(app, session);

  // The commands run as they are parsed.
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? 0 : badUsage;
  } catch (const drive::Failure& e) {
    std::fprintf(stderr, "ruvodrive: %s\n", e.what());
    return failed;
  } catch (const plat::Exception& e) {
    std::fprintf(stderr, "ruvodrive: %s\n", e.text());
    return failed;
  }
  return 0;
}
