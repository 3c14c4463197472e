#pragma once

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/AgentConnection.h"
#include "host/AgentProcess.h"
#include "host/Loop.h"

namespace drive {

// What ends the program with status 1 and one line.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct SessionOptions {
  std::string display;
  std::string mode = "user";
  std::string agent;                    // empty: defaultAgent()
  std::vector<std::string> parameters;  // Name=Value
  std::string monitors;                 // which to capture; empty: all
};

// Remembers what every command needs to know of an agent. Commands derive from it; an override
// calls the function here too.
class Recorder : public host::AgentListener {
 public:
  void init(uint32_t magic) override { magic_ = magic; }
  void initRectAndPf(const rfb::Rect& rect, const rfb::PixelFormat& format) override;
  void setPixelBuffer(const host::PixelBufferInfo&) override { ++buffers_; }
  void desktopFailure(const std::string& text, const std::string& kind) override;
  void logMsg(const host::LogLine& line) override;
  void disconnected(const std::string& text) override;

  uint32_t magic() const { return magic_; }
  bool greeted() const { return greeted_; }
  const rfb::Rect& rect() const { return rect_; }
  const rfb::PixelFormat& format() const { return format_; }
  int buffers() const { return buffers_; }
  // Empty unless the agent reported a failure.
  const std::string& failure() const { return failure_; }
  const std::string& lastError() const { return lastError_; }
  // The agent does not know the monitors that it was told to capture.
  bool selectionRefused() const { return selectionRefused_; }

 private:
  uint32_t magic_ = 0;
  bool greeted_ = false;
  rfb::Rect rect_;
  rfb::PixelFormat format_;
  int buffers_ = 0;
  std::string failure_;
  std::string lastError_;
  bool selectionRefused_ = false;
};

// One agent, started and greeted. It ends with the object.
class Session {
 public:
  // Starts the agent and waits for its greeting; the recorder is not owned and is told everything.
  // Throws Failure.
  Session(const SessionOptions& options, Recorder& recorder);
  ~Session();

  host::AgentConnection& agent() { return *connection_; }
  host::AgentProcess& process() { return *process_; }
  // Waits for the agent; descriptors of a command's own may be added.
  host::Loop& loop() { return loop_; }

  // Starts the desktop, selects the monitors and waits for the buffer. Throws Failure.
  void startDesktop();
  // Runs the loop until done. Throws Failure when the agent goes away or the time is over.
  void waitUntil(const std::function<bool()>& done, int timeoutMs, const std::string& what);
  // Lets the agent do what was asked, then leave. Throws Failure unless it did with status
  // 0.
  void finish();

 private:
  void waitForBuffer(int before);
  // Why the agent went: its own words, else its exit status.
  std::string explainDeath();

  Recorder& recorder_;
  const std::string monitors_;
  plat::FileDescriptor errorRead_;
  std::unique_ptr<host::AgentProcess> process_;
  std::unique_ptr<host::AgentConnection> connection_;
  host::Loop loop_;
};

// The agent that stands beside this program, else the one on PATH.
std::string defaultAgent();

}  // namespace drive
