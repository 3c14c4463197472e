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

constexpr int kBadUsage = 2;
constexpr int kFailed = 1;

}  // namespace

bool drive::interrupted() {
  // Nobody is there any more to see what would come.
  return interruptedFlag != 0 || std::ferror(stdout) != 0;
}

std::string drive::checkSeconds(const std::string& text) {
  double seconds = 0;
  const bool good = CLI::detail::lexical_cast(text, seconds) && seconds > 0;
  return good ? "" : "'" + text + "' is not a number of seconds above 0";
}

int main(int argc, char** argv) {
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
  } catch (const CLI::RequiredError& e) {
    if (app.get_subcommands().empty() && !app.remaining().empty()) {
      std::fprintf(stderr, "'%s' is not a command\nRun with --help for more information.\n",
                   app.remaining()[0].c_str());
      return kBadUsage;
    }
    return app.exit(e) == 0 ? 0 : kBadUsage;
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? 0 : kBadUsage;
  } catch (const drive::Failure& e) {
    std::fprintf(stderr, "ruvodrive: %s\n", e.what());
    return kFailed;
  } catch (const plat::Exception& e) {
    std::fprintf(stderr, "ruvodrive: %s\n", e.text());
    return kFailed;
  }
  if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
    std::fprintf(stderr, "ruvodrive: the output can't be written\n");
    return kFailed;
  }
  return 0;
}
