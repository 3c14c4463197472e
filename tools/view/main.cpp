#include <signal.h>

#include <CLI/CLI.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Desktop.h"
#include "Log.h"
#include "Options.h"
#include "Server.h"
#include "XServer.h"
#include "ruvohost/Launch.h"
#include "ruvohost/Parameters.h"

namespace {

constexpr int kBadUsage = 2;
constexpr int kMaxSize = 16384;
constexpr std::chrono::milliseconds kFarewell{500};

void ignoreSignal(int) {}

std::string parseSize(const std::string& text, view::Options& options) {
  char rest = 0;
  const int parts =
      std::sscanf(text.c_str(), "%5dx%5d%c", &options.newWidth, &options.newHeight, &rest);
  const bool good = parts == 2 && options.newWidth > 0 && options.newHeight > 0 &&
                    options.newWidth <= kMaxSize && options.newHeight <= kMaxSize;
  return good ? "" : "'" + text + "' is not WIDTHxHEIGHT";
}

std::string parseListen(const std::string& text, view::Options& options) {
  if (text.starts_with("unix:")) {
    options.socketPath = text.substr(5);
    return options.socketPath.empty() ? "'" + text + "' names no socket" : "";
  }
  const size_t colon = text.rfind(':');
  std::string port = colon == std::string::npos ? "" : text.substr(colon + 1);
  options.address = text.substr(0, colon);
  if (options.address.size() > 2 && options.address.front() == '[' &&
      options.address.back() == ']') {
    options.address = options.address.substr(1, options.address.size() - 2);
  }
  if (options.address == "localhost") options.address = "127.0.0.1";
  char* end = nullptr;
  const unsigned long number = std::strtoul(port.c_str(), &end, 10);  // NOLINT(google-runtime-int)
  if (port.empty() || *end || port[0] == '-' || port[0] == '+' || number > 65535) {
    return "'" + text + "' is not ADDRESS:PORT or unix:PATH";
  }
  options.port = static_cast<uint16_t>(number);
  return "";
}

std::string parseParameter(const std::string& text, view::Options& options) {
  const size_t equals = text.find('=');
  if (equals == 0 || equals == std::string::npos) return "'" + text + "' is not Name=Value";
  options.parameters.emplace_back(text.substr(0, equals), text.substr(equals + 1));
  return "";
}

// What is wrong with the parameters that the agent is to get; empty when nothing is.
std::string wrongParameter(const view::Options& options) {
  if (options.parameters.empty()) return {};
  const auto known = ruvohost::parametersOf(options.agent);
  for (const auto& [name, value] : options.parameters) {
    std::string wrong = ruvohost::checkParameter(known, name, value);
    if (!wrong.empty()) return wrong;
  }
  return {};
}

bool isLoopback(const std::string& address) {
  return address == "::1" || address.starts_with("127.");
}

// Throws CLI::ParseError.
void parse(CLI::App& app, int argc, char** argv, view::Options& options) {
  std::vector<std::string> arguments;
  int i = 1;
  while (i < argc && std::string(argv[i]) != "--") arguments.emplace_back(argv[i++]);
  for (++i; i < argc; ++i) options.command.emplace_back(argv[i]);

  const auto with = [&options](std::string (*parser)(const std::string&, view::Options&)) {
    return [&options, parser](const std::string& text) { return parser(text, options); };
  };
  std::string size, listen;
  std::vector<std::string> parameters;
  app.set_version_flag("--version", std::string("ruvoview ") + RUVO_VERSION);
  auto* display =
      app.add_option("--display", options.display, "X display of the desktop (default: $DISPLAY)");
  auto* made =
      app.add_option("--new", size, "Show a new X server of this size, with what follows -- on it")
          ->type_name("WIDTHxHEIGHT")
          ->check(with(parseSize));
  display->excludes(made);
  app.add_option("--listen", listen,
                 "Where pages are served (default: 127.0.0.1:0); port 0 chooses one")
      ->type_name("ADDRESS:PORT|unix:PATH")
      ->check(with(parseListen));
  app.add_option("--agent", options.agent, "The agent's program (default: the one beside this)");
  app.add_option("--param", parameters, "A parameter of the agent, as Name=Value")
      ->take_all()
      ->allow_extra_args(false)
      ->check(with(parseParameter));
  app.add_flag("--view-only", options.viewOnly, "Pages show the desktop and pass nothing back");
  app.add_option("--token-file", options.tokenFile,
                 "Holds the token; written when it is not there (default: a new token each time)");
  app.add_option("--origin", options.origin,
                 "Where browsers see the page, when a proxy serves it: https://HOST");
  auto* certificate =
      app.add_option("--cert", options.certificate, "Certificate chain for TLS, PEM");
  auto* key = app.add_option("--key", options.key, "Its private key, PEM");
  certificate->needs(key);
  key->needs(certificate);
  app.footer(
      "The first line on standard output is the page's address.\nExamples:\n"
      "  ruvoview --display :0\n  ruvoview --new 1280x720 -- openbox");
  app.parse_complete_callback([&] {
    if (!options.command.empty() && options.newWidth == 0) {
      throw CLI::ValidationError("--", "a command goes with --new");
    }
    if (options.socketPath.empty() && !isLoopback(options.address) && !options.usesTls()) {
      throw CLI::ValidationError("--listen", "beyond this machine only with --cert and --key");
    }
    while (!options.origin.empty() && options.origin.back() == '/') options.origin.pop_back();
    if (options.agent.empty()) options.agent = ruvohost::findAgent();
    if (const std::string wrong = wrongParameter(options); !wrong.empty()) {
      throw CLI::ValidationError("--param", wrong);
    }
  });
  std::reverse(arguments.begin(), arguments.end());
  app.parse(arguments);
  if (options.display.empty() && options.newWidth == 0) {
    if (const char* environment = std::getenv("DISPLAY")) options.display = environment;
    if (options.display.empty()) {
      throw CLI::ValidationError("--display", "no display, and DISPLAY is not set");
    }
  }
}

void run(const view::Options& options) {
  boost::asio::io_context loop(1);
  boost::asio::signal_set ending(loop, SIGINT, SIGTERM, SIGHUP);
  boost::asio::signal_set children(loop, SIGCHLD);
  view::Desktop desktop(loop, options);
  std::optional<view::Server> server;
  server.emplace(loop, options, [&desktop](view::Channel& channel, view::Secrets::Access access) {
    return desktop.admit(channel, access);
  });

  std::optional<view::XServer> xServer;
  std::function<void()> watchChildren = [&] {
    children.async_wait([&](boost::system::error_code error, int) {
      if (error) return;
      xServer->reap();
      watchChildren();
    });
  };
  if (options.newWidth > 0) {
    desktop.wantSize(options.newWidth, options.newHeight);
    desktop.whenLive = [&xServer] { xServer->startSession(); };
    watchChildren();
    xServer.emplace(loop, options.newWidth, options.newHeight, options.command,
                    [&desktop](const std::string& display, const auto& environment) {
                      desktop.setDisplay(display, environment);
                    });
  } else {
    desktop.setDisplay(options.display, {});
  }

  bool ended = false;
  ending.async_wait([&](boost::system::error_code error, int) { ended = !error; });
  std::printf("%s\n", server->address().c_str());
  std::fflush(stdout);
  if (!options.viewOnly) view::log("to look only: " + server->viewAddress());
  while (!ended) {
    desktop.turn();
    loop.run_one();
  }

  // The pages are told, and the desktop is left in good order before its X server goes.
  server.reset();
  desktop.end();
  children.cancel();
  loop.restart();
  loop.run_for(kFarewell);
}

}  // namespace

int main(int argc, char** argv) {
  // Not ignored, which the programs that are started would inherit.
  struct sigaction action {};
  action.sa_handler = ignoreSignal;
  sigaction(SIGPIPE, &action, nullptr);

  view::Options options;
  CLI::App app("Shows a desktop live in a browser, and lets it be used there.", "ruvoview");
  try {
    parse(app, argc, argv, options);
    run(options);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? 0 : kBadUsage;
  } catch (const std::exception& e) {
    view::log(e.what());
    return 1;
  }
  return 0;
}
