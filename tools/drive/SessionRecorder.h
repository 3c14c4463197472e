#pragma once

#include <sys/socket.h>

#include <memory>
#include <string>
#include <thread>

#include "Relay.h"
#include "SessionFile.h"
#include "host/AgentConnection.h"
#include "host/AgentListener.h"

namespace drive {

struct RecordingOptions {
  std::string file;     // empty: nothing is recorded
  bool pixels = false;  // also the pixels of what changes
  bool redact = false;  // without key symbols and clipboard texts
};

// Stands between a server and its agent, and writes down what passes.
class SessionRecorder : public host::AgentListener {
 public:
  // Throws plat::Exception when the file can't be written.
  explicit SessionRecorder(const RecordingOptions& options);
  // What start() began must be over: commit() or the end of both sockets.
  ~SessionRecorder() override;

  void note(const std::string& text) { writer_.note(text); }
  // Passes bytes on and writes them down, until both directions have ended.
  void run(plat::FileDescriptor agent, plat::FileDescriptor server);
  // The same beside the caller. Returns the server's end of the channel.
  plat::FileDescriptor start(plat::FileDescriptor agent);
  // Waits until both directions have ended, and makes the file. Throws plat::Exception. Called a
  // second time it does nothing.
  void commit();

 private:
  void setPixelBuffer(const host::PixelBufferInfo& info) override;
  void fbUpdate(const host::UpdateMessage& update) override;

  void witness(SessionRecord::Kind from, const uint8_t* bytes, size_t length);
  // Lets the own view of the channel know what the agent said.
  void showMirror(const uint8_t* bytes, size_t length);
  void writePixels(const rfb::Rect& rect);

  const RecordingOptions options_;
  SessionWriter writer_;
  std::string error_;  // why writing has stopped; what passes still does
  std::thread thread_;
  bool done_ = false;
  // A second ear, for the pixels.
  plat::FileDescriptor toMirror_;
  std::unique_ptr<host::AgentConnection> mirror_;
};

}  // namespace drive
