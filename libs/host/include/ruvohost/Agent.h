#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ruvohost/Framebuffer.h"
#include "ruvohost/Launch.h"
#include "ruvohost/Listener.h"
#include "ruvohost/Types.h"

namespace ruvohost {

// A running agent. It needs no thread, signal handler or loop of its own, and there may be any
// number in one process. A server with a loop waits for what fd(), events() and msUntilNext() say,
// asked anew before each wait, and then calls process(); one without a loop calls processUntil().
// Requests are queued and never wait.
class Agent {
 public:
  using Answer = std::function<void(const Outcome& outcome)>;

  // Starts it. The listener is not owned and must outlive the agent. Throws Error.
  Agent(const Launch& launch, Listener& listener);
  // Ends it: it gets 5 s to leave by itself.
  ~Agent();
  Agent(const Agent&) = delete;
  Agent& operator=(const Agent&) = delete;

  // The channel's descriptor, -1 when disconnected, and events of poll() to wait for.
  int fd() const;
  short events() const;
  // Milliseconds until process() has something to do without an event; -1 for never.
  int msUntilNext() const;
  // Handles what is there, without waiting. Harmless at any time.
  void process();
  // Waits and processes until done() says so, the agent is gone, or the time is over (-1 without
  // limit); returns done().
  bool processUntil(const std::function<bool()>& done, int timeoutMs);

  bool isConnected() const;
  pid_t pid() const;
  // Hangs up and waits: everything that was requested is done then. The agent's exit status, 128 +
  // the number of the signal that ended it, or nothing when it is still there after timeoutMs.
  std::optional<int> finish(int timeoutMs);

  // Empty before the first one.
  const Framebuffer& framebuffer() const;

  // Begins to capture; framebufferChanged() follows, or desktopFailed().
  void start();
  void stop();
  // Has updated() called once, as soon as something has changed.
  void requestUpdate();
  // An X key symbol goes down or up.
  void key(uint32_t keysym, bool down);
  // Position in the desktop, and the buttons that are down: bit n is button n + 1.
  void pointer(int32_t x, int32_t y, uint32_t buttons);
  void pointerBy(int32_t dx, int32_t dy, uint32_t buttons);
  // Offers UTF-8 text to be pasted in the desktop.
  void offerText(std::string_view utf8);
  void setParameters(const std::vector<std::pair<std::string, std::string>>& parameters);
  void resize(uint32_t width, uint32_t height);
  // Numbers of monitors with commas between, as in the parameter `Monitor`; empty for all.
  void selectMonitors(std::string_view selection);
  // Whom shared memory is given to, for an agent that runs as root.
  void setDesktopOwner(uint64_t userId, uint64_t groupId);
  // Log lines up to this level are sent, of one source or of all.
  void setLogLevel(uint32_t level, std::string_view source = {});

  // The same, with an answer: it is called once, from process() or processUntil(), when the new
  // state can be seen, or when it will not come.
  void start(Answer answer);
  void resize(uint32_t width, uint32_t height, Answer answer);
  void selectMonitors(std::string_view selection, Answer answer);
  void setParameters(const std::vector<std::pair<std::string, std::string>>& parameters,
                     Answer answer);
  // Everything requested before now has been handled, and what the agent had to say has been told.
  void sync(Answer answer);
  // Waits for an answer: agent.await([&](auto answer) { agent.resize(800, 600, answer); }).
  Outcome await(const std::function<void(Answer answer)>& request);

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace ruvohost
