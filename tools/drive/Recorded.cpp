#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>

#include "Commands.h"
#include "JsonOutput.h"
#include "MessagePrinter.h"
#include "Terminal.h"
#include "plat/Exception.h"
#include "rdr/FileOutStream.h"
#include "rdr/MemInStream.h"

namespace drive {

namespace {

using Kind = SessionRecord::Kind;

constexpr int kLeaveTimeoutMs = 5000;

struct RecordOptions {
  double seconds = 0;
  int channel = -1;  // a server's own
};

struct PlayOptions {
  std::string file;
  bool show = false;
  bool fast = false;
  std::string pixels;  // directory
};

// Asks for each next update.
class Viewer : public host::Transcript {
 public:
  Viewer() : Transcript(Keep::kLast) {}

  void watch(host::AgentConnection& agent) {
    agent_ = &agent;
    agent.fbUpdateRequest();
  }

 private:
  void noted(std::string_view message) override {
    if (agent_ && message == "fbUpdate") agent_->fbUpdateRequest();
  }

  host::AgentConnection* agent_ = nullptr;
};

void recordDesktop(const SessionOptions& options, double seconds) {
  Viewer viewer;
  Session session(options, viewer);
  session.startDesktop();
  viewer.watch(session.agent());
  session.run(seconds, [] { return false; });
  session.finish();
}

// In an agent's place, as a server of somebody's starts it.
void recordServer(const SessionOptions& options, int channel) {
  try {
    const std::unique_ptr<SessionRecorder> recorder = makeRecorder(options);
    plat::FileDescriptor server(channel);
    plat::FileDescriptor::setCloseOnExec(channel);
    host::AgentProcess agent = host::AgentProcess::launch(launchOptions(options));
    recorder->run(agent.takeChannel(), std::move(server));
    const std::optional<int> status = agent.wait(kLeaveTimeoutMs);
    recorder->commit();
    if (!status) throw Failure("the agent does not leave");
    if (*status != 0) throw Failure(plat::format("the agent's status is %d", *status));
  } catch (const plat::Exception& e) {
    throw Failure(std::string("the session is not recorded: ") + e.text());
  }
}

// The agent's side of a recorded session, with the times of then.
class RecordedPrinter : public MessagePrinter {
 public:
  double now = 0;

 private:
  double seconds() const override { return now; }
};

// An agent that says what was recorded.
class RecordedAgent {
 public:
  explicit RecordedAgent(RecordedPrinter& printer) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) < 0) throw Failure("no sockets");
    agent_.reset(ends[0]);
    plat::FileDescriptor::setNonBlocking(agent_.get());
    connection_ = std::make_unique<host::AgentConnection>(plat::FileDescriptor(ends[1]), &printer);
    // It is not there any more, and what a file names is not to be opened.
    connection_->setMapsSegments(false);
  }

  void say(const std::vector<uint8_t>& bytes) {
    for (size_t at = 0; at < bytes.size() && connection_->isConnected();) {
      const ssize_t sent = send(agent_.get(), &bytes[at], bytes.size() - at, MSG_NOSIGNAL);
      if (sent > 0) at += static_cast<size_t>(sent);
      connection_->process(0);
    }
    pollfd more{connection_->fd(), POLLIN, 0};
    while (connection_->isConnected() &&
           (poll(&more, 1, 0) > 0 || connection_->msUntilNext() == 0)) {
      connection_->process(0);
    }
  }

 private:
  plat::FileDescriptor agent_;
  std::unique_ptr<host::AgentConnection> connection_;
};

std::string hexOf(const std::vector<uint8_t>& bytes, size_t begin) {
  std::string text;
  for (size_t i = begin; i < bytes.size() && i < begin + 64; ++i) {
    text += plat::format("%02x", bytes[i]);
  }
  return text + (bytes.size() > begin + 64 ? "..." : "");
}

void savePixels(const SessionRecord& record, const std::string& directory, int number) {
  constexpr size_t kRect = 16;
  rdr::MemInStream in(record.bytes.data(), record.bytes.size());
  const int x = in.readS32(), y = in.readS32();
  in.skip(kRect - 8);
  rdr::FileOutStream file(directory + plat::format("/%05d+%d+%d.png", number, x, y));
  file.writeBytes(record.bytes.data() + kRect, record.bytes.size() - kRect);
  file.close();
}

void show(const PlayOptions& options) {
  SessionReader reader(options.file);
  RecordedPrinter printer;
  RecordedAgent agent(printer);
  int pictures = 0;
  for (SessionRecord record; !interrupted() && reader.read(record);) {
    printer.now = static_cast<double>(record.microseconds) / 1e6;
    if (record.kind == Kind::kAgent) {
      agent.say(record.bytes);
    } else if (record.kind == Kind::kServer) {
      const std::vector<uint8_t> payload = record.payload();
      const std::string name(nameOfMessage(payload));
      const size_t body = std::min(1 + name.size(), payload.size());
      printJsonLine({{"time", printer.now},
                     {"server", name},
                     {"length", payload.size() - body},
                     {"body", hexOf(payload, body)}});
    } else if (record.kind == Kind::kNote) {
      printJsonLine(
          {{"time", printer.now}, {"note", std::string(record.bytes.begin(), record.bytes.end())}});
    } else if (!options.pixels.empty()) {
      savePixels(record, options.pixels, ++pictures);
    }
  }
}

// What a session was recorded with, for an agent that is to go through it again.
std::vector<std::string> recordedParameters(const std::string& file) {
  SessionReader reader(file);
  SessionRecord record;
  if (!reader.read(record) || record.kind != Kind::kNote) return {};
  const Json note = Json::parse(record.bytes, nullptr, false);
  std::vector<std::string> parameters;
  if (note.is_object() && note.contains("parameters") && note["parameters"].is_array()) {
    for (const Json& parameter : note["parameters"]) {
      if (parameter.is_string()) parameters.push_back(parameter.get<std::string>());
    }
  }
  return parameters;
}

void play(SessionOptions sessionOptions, const PlayOptions& options) {
  if (sessionOptions.parameters.empty()) {
    sessionOptions.parameters = recordedParameters(options.file);
    if (const std::string wrong = wrongParameter(sessionOptions); !wrong.empty()) {
      throw Failure("the session was recorded with another agent: " + wrong);
    }
  }
  using Clock = std::chrono::steady_clock;
  SessionReader reader(options.file);
  MessagePrinter printer;
  Session session(sessionOptions, printer);
  const Clock::time_point begin = Clock::now();
  for (SessionRecord record; !interrupted() && reader.read(record);) {
    if (record.kind == Kind::kNote || record.kind == Kind::kPixels) continue;
    if (!options.fast) {
      const auto due = begin + std::chrono::microseconds(record.microseconds);
      const double left = std::chrono::duration<double>(due - Clock::now()).count();
      if (left > 0.001) session.run(left, [] { return false; });
    }
    if (record.kind != Kind::kServer) continue;
    const std::vector<uint8_t> payload = record.payload();
    const std::string name(nameOfMessage(payload));
    if (name.empty()) continue;
    rdr::OutStream& out = session.agent().channel().writeMsg(name);
    out.writeBytes(payload.data() + 1 + name.size(), payload.size() - 1 - name.size());
    session.agent().channel().endMsg();
    session.loop().process(0);
  }
  session.finish();
}

}  // namespace

void addRecordedCommands(CLI::App& app, SessionOptions& session) {
  auto recording = std::make_shared<RecordOptions>();
  CLI::App* command =
      app.add_subcommand("record-session", "Records what server and agent say to each other");
  command->add_option("file", session.recording.file, "File to write")->required();
  CLI::Option* redact = command->add_flag("--redact", session.recording.redact,
                                          "Leave out key symbols and clipboard texts");
  command->add_flag("--pixels", session.recording.pixels, "Also the pixels of what changes")
      ->excludes(redact);
  command->add_option("--for", recording->seconds, "Seconds (default: until interrupted)")
      ->check(checkSeconds);
  command
      ->add_option("--channel", recording->channel,
                   "Stand in for the agent: the channel of a server that starts this instead")
      ->check(CLI::Range(0, 1023));
  setExamples(*command, "record-session --redact --for 60 bug.session",
              "record-session typing.session type Hello");
  command->callback([&app, &session, command, recording] {
    if (app.get_subcommands().back() != command) return;  // another command's session
    if (recording->channel >= 0) {
      recordServer(session, recording->channel);
    } else {
      recordDesktop(session, recording->seconds);
    }
  });

  auto playing = std::make_shared<PlayOptions>();
  command = app.add_subcommand("play-session", "Plays the server's side of a recorded session");
  command->add_option("file", playing->file, "File to read")->required();
  CLI::Option* showing =
      command->add_flag("--show", playing->show, "Print what was recorded; no agent is started");
  command->add_flag("--fast", playing->fast, "Do not wait as long as it took then")
      ->excludes(showing);
  command->add_option("--save-pixels", playing->pixels, "Directory for recorded pictures")
      ->type_name("DIRECTORY")
      ->check(CLI::ExistingDirectory)
      ->needs(showing);
  setExamples(*command, "--display :1 play-session bug.session",
              "play-session --show bug.session | jq -c .message");
  command->callback([&session, playing] {
    try {
      if (playing->show) {
        show(*playing);
      } else {
        play(session, *playing);
      }
    } catch (const plat::Exception& e) {
      throw Failure(playing->file + ": " + e.text());
    }
  });
}

}  // namespace drive
