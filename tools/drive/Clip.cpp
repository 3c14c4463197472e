#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <memory>

#include "Commands.h"
#include "Terminal.h"

namespace drive {

namespace {

struct ClipOptions {
  bool clipboardOnly = false;
  double seconds = 0;  // 0: without limit
};

void print(const std::string& text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0) {
    throw Failure(std::string("can't write the text: ") + strerror(errno));
  }
}

// Standard input, a line at a time.
class Lines {
 public:
  explicit Lines(std::function<void(const std::string&)> handle) : handle_(std::move(handle)) {}

  // Reads what there is. False at the end.
  bool read() {
    std::array<char, 65536> bytes;
    const ssize_t got = ::read(STDIN_FILENO, bytes.data(), bytes.size());
    if (got < 0 && (errno == EINTR || errno == EAGAIN)) return true;
    if (got <= 0) {
      if (!partial_.empty()) handle_(partial_);
      return false;
    }
    partial_.append(bytes.data(), static_cast<size_t>(got));
    size_t begin = 0;
    for (size_t end; (end = partial_.find('\n', begin)) != std::string::npos; begin = end + 1) {
      handle_(partial_.substr(begin, end - begin));
    }
    partial_.erase(0, begin);
    return true;
  }

 private:
  std::function<void(const std::string&)> handle_;
  std::string partial_;
};

// An agent that tells of what is copied, whatever its configuration says, unless told otherwise.
SessionOptions monitoring(SessionOptions options, bool primary) {
  options.parameters.insert(options.parameters.begin(),
                            {"EnableClipboard=1", primary ? "SendPrimary=1" : "SendPrimary=0"});
  return options;
}

void get(const SessionOptions& sessionOptions, const ClipOptions& options) {
  host::Transcript seen;
  Session session(monitoring(sessionOptions, !options.clipboardOnly), seen);
  session.startDesktop();
  if (isatty(STDERR_FILENO)) std::fputs("Waiting for text to be copied\n", stderr);
  const bool copied = session.run(options.seconds, [&] { return !seen.cutTexts.empty(); });
  session.finish();
  if (!copied) throw Failure(interrupted() ? "interrupted" : "nothing was copied");
  print(seen.cutTexts.front());
}

void set(const SessionOptions& sessionOptions, const ClipOptions& options) {
  const std::string text = readAll("-");
  if (text.size() > INT_MAX) throw Failure("the text is longer than 2 GB");

  host::Transcript seen;
  Session session(sessionOptions, seen);
  session.agent().clientCutText(text);
  const auto refused = [&] { return seen.refusal(host::Refusal::Kind::kClipboardText); };
  session.run(options.seconds, refused);
  session.finish();
  if (refused()) throw session.refusal(refused()->text);
}

void watchClipboard(const SessionOptions& sessionOptions, const ClipOptions& options) {
  host::Transcript seen;
  Session session(monitoring(sessionOptions, !options.clipboardOnly), seen);
  session.startDesktop();
  Lines lines([&](const std::string& line) { session.agent().clientCutText(line); });
  session.loop().watch(STDIN_FILENO, [&] {
    if (!lines.read()) session.loop().unwatch(STDIN_FILENO);
  });
  session.run(options.seconds, [&] {
    for (const std::string& text : seen.cutTexts) print(text.ends_with('\n') ? text : text + "\n");
    seen.cutTexts.clear();
    return false;
  });
  session.finish();
}

}  // namespace

void addClipCommands(CLI::App& app, SessionOptions& session) {
  auto options = std::make_shared<ClipOptions>();
  CLI::App* clip = app.add_subcommand("clip", "Copies and pastes text");
  clip->require_subcommand(1);
  CLI::App* gets = clip->add_subcommand(
      "get",
      "Waits for the next text that is copied in the desktop, and prints it. What was copied "
      "before is not known: agents tell of changes only");
  CLI::App* sets = clip->add_subcommand(
      "set",
      "Puts the text on standard input into PRIMARY, CLIPBOARD and the cut buffer. X programs ask "
      "the agent for it when they paste, so this stays until interrupted");
  CLI::App* watches = clip->add_subcommand(
      "watch",
      "Prints each text that is copied, and puts each line of standard input into the selections");
  for (CLI::App* each : {gets, watches}) {
    CLI::Option* only = each->add_flag("--clipboard", options->clipboardOnly,
                                       "Only what is copied (CLIPBOARD), not what is selected");
    each->add_flag("--primary")
        ->description("Also what is only selected (PRIMARY); the default")
        ->excludes(only);
  }
  gets->add_option("--timeout", options->seconds, "Seconds to wait (default: until interrupted)")
      ->check(checkSeconds);
  for (CLI::App* each : {sets, watches}) {
    each->add_option("--for", options->seconds, "Seconds to stay (default: until interrupted)")
        ->check(checkSeconds);
  }
  setExamples(*clip, "clip get --timeout 10", "clip set --for 60 < text.txt");
  setExamples(*gets, "clip get", "clip get --clipboard --timeout 10");
  setExamples(*sets, "clip set < text.txt", "clip set --for 60 < text.txt");
  setExamples(*watches, "clip watch", "clip watch --clipboard --for 60");
  gets->callback([&session, options] { get(session, *options); });
  sets->callback([&session, options] { set(session, *options); });
  watches->callback([&session, options] { watchClipboard(session, *options); });
}

}  // namespace drive
