#pragma once

#include <ruvohost/Agent.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "AgentWatch.h"
#include "DisplaySizes.h"
#include "Frame.h"
#include "Guest.h"
#include "Options.h"
#include "Viewer.h"
#include "Workers.h"

namespace view {

// The desktop: an agent on it, which is started again when it has gone, and the pages that see it.
class Desktop : public ruvohost::Listener, public Viewer::Callback {
 public:
  enum class State { kStarting, kLive, kCaptureBroken, kNoAgent, kNoDisplay };

  Desktop(boost::asio::io_context& loop, const Options& options);
  ~Desktop() override;
  Desktop(const Desktop&) = delete;
  Desktop& operator=(const Desktop&) = delete;

  // The X display to show, with what programs need in their environment to use it; empty while
  // there is none.
  void setDisplay(const std::string& display,
                  const std::vector<std::pair<std::string, std::string>>& environment);
  // The framebuffer's first size, which the desktop is given when it comes to live; 0 leaves it.
  void wantSize(int width, int height);
  // Called each time the desktop has come to live, with the wanted size.
  std::function<void()> whenLive;

  std::unique_ptr<Guest> admit(Channel& channel, Secrets::Access access);
  // To be called before each turn of the loop: sends what pages can take, asks for more.
  void turn();
  // Tells the pages that the server ends, and ends the agent.
  void end();

 private:
  // Viewer::Callback
  void left(Viewer& viewer) override;
  void key(uint32_t symbol, bool down) override;
  void pointer(const Viewer& from, int32_t x, int32_t y, uint32_t buttons) override;
  void offerText(const std::string& utf8) override;
  void resize(Viewer& viewer, uint32_t width, uint32_t height) override;
  void selectMonitors(Viewer& viewer, const std::string& numbers) override;
  void tellLines(Viewer& viewer) override;
  void logLevelsChanged() override;
  // ruvohost::Listener
  void framebufferChanged(const ruvohost::Framebuffer& framebuffer) override;
  void coloursChanged(const ruvohost::Framebuffer& framebuffer) override;
  void updated(const ruvohost::Update& update) override;
  void cursorChanged(const ruvohost::Cursor& cursor) override;
  void cursorMoved(int32_t x, int32_t y) override;
  void bell() override;
  void textCopied(const std::string& utf8) override;
  void monitorsChanged(const ruvohost::Monitors& monitors) override;
  void captureBroken(bool broken) override;
  void pollingChanged(bool polling) override;
  void displaySizesSupported(bool supported) override;
  void displaySizesChanged() override;
  void desktopFailed(const std::string& text) override;
  void refused(const ruvohost::Refusal& refusal) override;
  void logged(const ruvohost::LogLine& line) override;
  void disconnected() override;

  void startAgent();
  void dropAgent();
  void tryAgain(std::function<void()> what);
  void setState(State state, const std::string& text);
  bool isShown() const { return state_ == State::kLive || state_ == State::kCaptureBroken; }
  void setShown();
  nlohmann::json stateMessage() const;
  nlohmann::json cursorMessage() const;
  nlohmann::json monitorsMessage() const;
  nlohmann::json modesMessage() const;
  void tellAll(const nlohmann::json& message, bool needed = true);
  ruvohost::Agent::Answer answerFor(Viewer& viewer, const std::string& what);
  bool isLive() const { return agent_ && agent_->isConnected() && frame_; }
  void setTimers(int64_t nowMs);

  const Options& options_;
  AgentWatch watch_;
  std::string display_;
  std::vector<std::pair<std::string, std::string>> environment_;
  int wantedWidth_ = 0, wantedHeight_ = 0;

  std::unique_ptr<ruvohost::Agent> agent_;
  bool lost_ = false, ended_ = false;
  boost::asio::steady_timer retry_, rest_, statistics_;
  bool restSet_ = false, statisticsSet_ = false;
  int retryMs_;

  State state_ = State::kStarting;
  std::string stateText_;
  std::unique_ptr<Frame> frame_;
  bool requested_ = false;
  ruvohost::Cursor cursor_;
  ruvohost::Monitors monitors_;
  DisplaySizes sizes_;
  bool captureBroken_ = false, polls_ = false;
  std::string text_;
  std::deque<nlohmann::json> lines_;
  const Viewer* pointing_ = nullptr;
  int64_t pointedMs_ = 0;

  Workers workers_;
  std::set<Viewer*> viewers_;
};

}  // namespace view
