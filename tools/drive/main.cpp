#include <signal.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include "Commands.h"
#include "HelpFormatter.h"
#include "Session.h"
#include "Terminal.h"
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

std::string drive::readAll(const std::string& file) {
  std::FILE* const stream = file == "-" ? stdin : std::fopen(file.c_str(), "rb");
  if (!stream) throw Failure(file + ": " + std::strerror(errno));
  std::string text;
  char bytes[65536];
  size_t got;
  while ((got = std::fread(bytes, 1, sizeof bytes, stream)) > 0) text.append(bytes, got);
  const int error = std::ferror(stream) ? errno : 0;
  if (stream != stdin) std::fclose(stream);
  if (error != 0) throw Failure("can't read the text: " + std::string(std::strerror(error)));
  return text;
}

void drive::setExamples(CLI::App& command, const std::string& first, const std::string& second) {
  command.footer("Examples:\n  ruvodrive " + first + "\n  ruvodrive " + second);
}

std::string drive::checkSeconds(const std::string& text) {
  double seconds = 0;
  const bool good = CLI::detail::lexical_cast(text, seconds) && seconds > 0;
  return good ? "" : "'" + text + "' is not a number of seconds above 0";
}

namespace {

// One command (behind "monitors select" or "record-session", perhaps). Options given before stay.
int runCommand(std::vector<std::string> arguments, drive::SessionOptions& session) {
  CLI::App app("Starts a ruvoagent in an X11 desktop and drives it as a server would.",
               "ruvodrive");
  app.set_version_flag("--version", std::string("ruvodrive ") + RUVO_VERSION);
  app.require_subcommand(1, 3);
  session.recording = {};
  app.fallthrough();
  app.formatter(std::make_shared<drive::HelpFormatter>());

  app.add_option("--display", session.display, "X display of the desktop (default: $DISPLAY)")
      ->type_name("NAME");
  app.add_option("--mode", session.mode, "Run mode: service, user or virtual")
      ->check(CLI::IsMember({"service", "user", "virtual"}))
      ->capture_default_str()
      ->type_name("MODE");
  app.add_option("--param", session.parameters, "A parameter of the agent; again for more")
      ->type_name("Name=Value")
      ->take_all()
      ->allow_extra_args(false)
      ->check([](const std::string& text) {
        const size_t equals = text.find('=');
        return equals == 0 || equals == std::string::npos ? "'" + text + "' is not Name=Value" : "";
      });
  app.add_option("--agent", session.agent, "The agent's program (default: the one beside this)")
      ->type_name("PATH");
  // Before any command starts something.
  app.parse_complete_callback([&session] {
    if (const std::string wrong = drive::wrongParameter(session); !wrong.empty()) {
      throw CLI::ValidationError("--param", wrong);
    }
  });

  drive::addViewCommands(app, session);
  drive::addInputCommands(app, session);
  drive::addClipCommands(app, session);
  drive::addMonitorCommands(app, session);
  drive::addResizeCommand(app, session);
  drive::addInquiryCommands(app, session);
  drive::addRecordedCommands(app, session);

  // The commands run as they are parsed.
  std::reverse(arguments.begin(), arguments.end());
  try {
    app.parse(arguments);
  } catch (const CLI::RequiredError& e) {
    if (app.get_subcommands().empty() && !app.remaining().empty()) {
      std::fprintf(stderr, "'%s' is not a command\nRun with --help for more information.\n",
                   app.remaining()[0].c_str());
      return kBadUsage;
    }
    return app.exit(e) == 0 ? 0 : kBadUsage;
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? 0 : kBadUsage;
  } catch (const std::runtime_error& e) {
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

}  // namespace

int main(int argc, char** argv) {
  struct sigaction action {};
  action.sa_handler = onSignal;  // without SA_RESTART: the wait ends
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);

  drive::SessionOptions session;
  std::vector<std::string> arguments;
  int status = 0;
  for (int i = 1; i <= argc && status == 0; ++i) {
    if (i < argc && std::strcmp(argv[i], "--") != 0) {
      arguments.emplace_back(argv[i]);
      continue;
    }
    if (interruptedFlag != 0) return kFailed;
    status = runCommand(std::exchange(arguments, {}), session);
  }
  return status;
}
