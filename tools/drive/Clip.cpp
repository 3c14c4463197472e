#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>

#include "Commands.h"

namespace drive {

namespace {

using Clock = std::chrono::steady_clock;

struct ClipOptions {
  bool clipboardOnly = false;
  double seconds = 0;  // 0: without limit
};

void print(const std::string& text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0) {
    throw Failure(std::string("can't write the text: ") + strerror(errno));
  }
}

// Keeps what is copied, and the agent's word on a text that it can't offer.
class ClipRecorder : public Recorder {
 public:
  void serverCutText(const std::string& copied) override { texts.push_back(copied); }
  void logMsg(const host::LogLine& line) override {
    Recorder::logMsg(line);
    if (line.level == 0 && line.text.starts_with("Unable to offer")) refusal = line.text;
  }

  std::vector<std::string> texts;
  std::string refusal;
};

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

// Lets the agent work until done, interrupted or out of time; false when it has not been done.
bool run(Session& session, double seconds, const std::function<bool()>& done) {
  const Clock::time_point begin = Clock::now();
  const auto over = [&] {
    return done() || interrupted() ||
           (seconds > 0 && std::chrono::duration<double>(Clock::now() - begin).count() >= seconds);
  };
  while (!over() && session.agent().isConnected()) session.loop().process(100);
  return done();
}

void get(const SessionOptions& sessionOptions, const ClipOptions& options) {
  ClipRecorder recorder;
  Session session(monitoring(sessionOptions, !options.clipboardOnly), recorder);
  session.startDesktop();
  if (isatty(STDERR_FILENO)) std::fputs("Waiting for text to be copied\n", stderr);
  const bool copied = run(session, options.seconds, [&] { return !recorder.texts.empty(); });
  session.finish();
  if (!copied) throw Failure(interrupted() ? "interrupted" : "nothing was copied");
  print(recorder.texts.front());
}

void set(const SessionOptions& sessionOptions, const ClipOptions& options) {
  std::string text;
  std::array<char, 65536> bytes;
  size_t got;
  while ((got = std::fread(bytes.data(), 1, bytes.size(), stdin)) > 0) {
    text.append(bytes.data(), got);
  }
  if (std::ferror(stdin)) throw Failure(std::string("can't read the text: ") + strerror(errno));
  if (text.size() > INT_MAX) throw Failure("the text is longer than 2 GB");

  ClipRecorder recorder;
  Session session(sessionOptions, recorder);
  session.agent().clientCutText(text);
  run(session, options.seconds, [&] { return !recorder.refusal.empty(); });
  session.finish();
  if (!recorder.refusal.empty()) throw Failure(recorder.refusal);
}

void watchClipboard(const SessionOptions& sessionOptions, const ClipOptions& options) {
  ClipRecorder recorder;
  Session session(monitoring(sessionOptions, !options.clipboardOnly), recorder);
  session.startDesktop();
  Lines lines([&](const std::string& line) { session.agent().clientCutText(line); });
  session.loop().watch(STDIN_FILENO, [&] {
    if (!lines.read()) session.loop().unwatch(STDIN_FILENO);
  });
  run(session, options.seconds, [&] {
    for (const std::string& text : recorder.texts) print(text.ends_with('\n') ? text : text + "\n");
    recorder.texts.clear();
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
  gets->callback([&session, options] { get(session, *options); });
  sets->callback([&session, options] { set(session, *options); });
  watches->callback([&session, options] { watchClipboard(session, *options); });
}

}  // namespace drive
