#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Failure.h"
#include "SessionRecorder.h"
#include "host/AgentConnection.h"
#include "host/AgentProcess.h"
#include "host/Loop.h"
#include "host/Transcript.h"

namespace drive {

struct SessionOptions {
  std::string display;
  std::string mode = "user";
  std::string agent;                    // empty: the one beside this program
  std::vector<std::string> parameters;  // Name=Value
  std::string monitors;                 // which to capture; empty: all
  RecordingOptions recording;
};

// One agent, started and greeted. It ends with the object.
class Session {
 public:
  // Starts the agent and waits for its greeting; the transcript is not owned and is told
  // everything. Throws Failure.
  Session(const SessionOptions& options, host::Transcript& transcript);
  ~Session();

  host::AgentConnection& agent() { return *connection_; }
  host::AgentProcess& process() { return *process_; }
  // Waits for the agent; descriptors of a command's own may be added.
  host::Loop& loop() { return loop_; }

  // Starts the desktop, selects the monitors and waits for the buffer. Throws Failure.
  void startDesktop();
  // Runs the loop until done. Throws Failure when the agent goes away or the time is over.
  void waitUntil(const std::function<bool()>& done, int timeoutMs, const std::string& what);
  // Runs the loop until done, interrupted, out of time (0: without limit), or without an agent.
  // False when it was not done.
  bool run(double seconds, const std::function<bool()>& done);
  // Goes on for so long, or until the agent has gone.
  void pause(int ms);
  // Lets the agent do what was asked, then leave, and shows what it wrote to its standard error.
  // Throws Failure unless it left with status 0, when it refused its log, and when the session
  // could not be recorded.
  void finish();
  // For what the agent did not do: names the display.
  Failure refusal(const std::string& text) const;

 private:
  void waitForBuffer(int before);
  void readErrors();
  void greet();
  // Ends the agent, and the recording of its session.
  void leave();
  // Makes the file of a recorded session.
  void commitRecording();
  // Why the agent went: its own words, else its exit status.
  std::string explainDeath();

  host::Transcript& transcript_;
  const std::string monitors_;
  std::string display_;
  plat::FileDescriptor errorRead_;
  std::string errors_;
  bool showErrors_ = false;  // as they come
  std::unique_ptr<SessionRecorder> recorder_;
  std::unique_ptr<host::AgentProcess> process_;
  std::unique_ptr<host::AgentConnection> connection_;
  host::Loop loop_;
};

host::LaunchOptions launchOptions(const SessionOptions& options);
// What is wrong with the parameters that the agent is to get; empty when nothing is.
std::string wrongParameter(const SessionOptions& options);
// Throws Failure.
std::unique_ptr<SessionRecorder> makeRecorder(const SessionOptions& options);

// The program to start.
std::string agentOf(const SessionOptions& options);

}  // namespace drive
