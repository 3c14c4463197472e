#include "Desktop.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <nlohmann/json.hpp>

#include "Clock.h"
#include "Cursor.h"
#include "Log.h"
#include "XSocket.h"

namespace view {

namespace {

using boost::system::error_code;
using nlohmann::json;

constexpr int kFirstRetryMs = 250;
constexpr int kLastRetryMs = 2000;
constexpr int kFinishMs = 3000;
constexpr std::chrono::seconds kStatisticsPeriod{1};
// How long the pointer's place is known to the page that has moved it.
constexpr int64_t kOwnMotionMs = 500;
constexpr uint16_t kGoingAway = 1001;
// The agent tells from here on how it finds changes.
constexpr int kFactLevel = 30;
// For pages that come later.
constexpr size_t kKeptLines = 100;

const char* nameOf(Desktop::State state) {
  switch (state) {
    case Desktop::State::kLive:
      return "live";
    case Desktop::State::kCaptureBroken:
      return "capture-broken";
    case Desktop::State::kNoDisplay:
      return "no-display";
    case Desktop::State::kStarting:
    case Desktop::State::kNoAgent:
      break;
  }
  return "no-agent";
}

const char* nameOf(ruvohost::Refusal::Kind kind) {
  switch (kind) {
    case ruvohost::Refusal::Kind::kDisplaySize:
      return "resize";
    case ruvohost::Refusal::Kind::kMonitors:
      return "monitors";
    case ruvohost::Refusal::Kind::kParameter:
      return "parameter";
    case ruvohost::Refusal::Kind::kKeySymbol:
      return "key";
    case ruvohost::Refusal::Kind::kClipboardText:
      return "clipboard";
    case ruvohost::Refusal::Kind::kInput:
      return "input";
    case ruvohost::Refusal::Kind::kLog:
      break;
  }
  return "log";
}

}  // namespace

Desktop::Desktop(boost::asio::io_context& loop, const Options& options)
    : options_(options),
      watch_(loop),
      retry_(loop),
      rest_(loop),
      statistics_(loop),
      retryMs_(kFirstRetryMs),
      stateText_("the agent starts") {}

Desktop::~Desktop() {
  for (Viewer* viewer : viewers_) viewer->desktopGone();
  watch_.stop();
}

void Desktop::setDisplay(const std::string& display,
                         const std::vector<std::pair<std::string, std::string>>& environment) {
  dropAgent();
  display_ = display;
  environment_ = environment;
  sizes_ = {};
  retryMs_ = kFirstRetryMs;
  if (display_.empty()) {
    setState(State::kNoDisplay, "the X server has gone");
  } else {
    startAgent();
  }
}

void Desktop::wantSize(int width, int height) {
  wantedWidth_ = width;
  wantedHeight_ = height;
}

void Desktop::startAgent() {
  if (ended_ || display_.empty()) return;
  dropAgent();
  if (!xServerAnswers(display_)) {
    setState(State::kNoDisplay, "no X server answers as display " + display_);
    tryAgain([this] { startAgent(); });
    return;
  }
  ruvohost::Launch launch;
  launch.agent = options_.agent;
  launch.display = display_;
  // Pages that only look get no text, and give none.
  if (!options_.viewOnly) launch.parameters.emplace_back("EnableClipboard", "1");
  launch.parameters.insert(launch.parameters.end(), options_.parameters.begin(),
                           options_.parameters.end());
  launch.environment = environment_;
  launch.standardOutput = 2;  // ours is for the address
  try {
    agent_ = std::make_unique<ruvohost::Agent>(launch, *this);
  } catch (const ruvohost::Error& e) {
    setState(State::kNoAgent, std::string("the agent can't be started: ") + e.what());
    tryAgain([this] { startAgent(); });
    return;
  }
  lost_ = false;
  logLevelsChanged();
  agent_->start();
}

void Desktop::dropAgent() {
  retry_.cancel();
  watch_.stop();
  for (Viewer* viewer : viewers_) viewer->setFrame(nullptr);
  frame_.reset();
  agent_.reset();
  sizes_.forgetRefusals();
  requested_ = false;
  lost_ = false;
  captureBroken_ = false;
  polls_ = false;
}

void Desktop::tryAgain(std::function<void()> what) {
  retry_.expires_after(std::chrono::milliseconds(retryMs_));
  retryMs_ = std::min(retryMs_ * 2, kLastRetryMs);
  retry_.async_wait([what = std::move(what)](error_code error) {
    if (!error) what();
  });
}

void Desktop::setState(State state, const std::string& text) {
  if (state == state_ && text == stateText_) return;
  const bool wasStarting = state_ == State::kStarting;
  state_ = state;
  stateText_ = text;
  if (state != State::kLive || !wasStarting) log(text);
  tellAll(stateMessage());
}

void Desktop::setShown() {
  if (captureBroken_) {
    setState(State::kCaptureBroken, "the X server reports changes incompletely");
  } else {
    setState(State::kLive, "the desktop is there");
  }
}

json Desktop::stateMessage() const {
  return {{"t", "state"}, {"state", nameOf(state_)}, {"text", stateText_}};
}

void Desktop::tellAll(const json& message, bool needed) {
  for (Viewer* viewer : viewers_) viewer->tell(message, needed);
}

std::unique_ptr<Guest> Desktop::admit(Channel& channel, Secrets::Access access) {
  auto viewer = std::make_unique<Viewer>(*this, channel,
                                         options_.viewOnly || access == Secrets::Access::kViewOnly);
  viewers_.insert(viewer.get());
  viewer->tell({{"t", "hello"},
                {"viewOnly", viewer->isViewOnly()},
                {"display", display_},
                {"version", RUVO_VERSION}});
  viewer->tell(stateMessage());
  if (agent_) {
    viewer->tell(cursorMessage());
    viewer->tell(monitorsMessage());
    viewer->tell(modesMessage());
    if (!text_.empty() && !viewer->isViewOnly()) {
      viewer->tell({{"t", "clipboard"}, {"text", text_}});
    }
  }
  viewer->setFrame(frame_.get());
  return viewer;
}

void Desktop::left(Viewer& viewer) {
  viewers_.erase(&viewer);
  if (pointing_ == &viewer) pointing_ = nullptr;
  logLevelsChanged();
}

void Desktop::turn() {
  if (ended_) return;
  if (lost_) {
    const bool display = xServerAnswers(display_);
    dropAgent();
    setState(display ? State::kNoAgent : State::kNoDisplay,
             display ? "the agent has gone" : "the X server has gone");
    tryAgain([this] { startAgent(); });
  }
  if (!agent_) return;
  const int64_t now = nowMs();
  if (isLive()) {
    bool ready = false;
    for (Viewer* viewer : viewers_) {
      viewer->sendFrame(workers_, requested_, now);
      ready = ready || viewer->isReady();
    }
    if (ready && !requested_) {
      requested_ = true;
      agent_->requestUpdate();
    }
    setTimers(now);
  }
  watch_.prepare(*agent_);
}

void Desktop::setTimers(int64_t now) {
  int next = -1;
  for (const Viewer* viewer : viewers_) {
    const int each = viewer->msUntilRest(now);
    if (each >= 0 && (next < 0 || each < next)) next = each;
  }
  if (next >= 0 && !restSet_) {
    restSet_ = true;
    rest_.expires_after(std::chrono::milliseconds(next));
    rest_.async_wait([this](error_code error) {
      if (!error) restSet_ = false;
    });
  }
}

void Desktop::end() {
  ended_ = true;
  retry_.cancel();
  rest_.cancel();
  statistics_.cancel();
  for (Viewer* viewer : viewers_) viewer->close(kGoingAway, "the server ends");
  watch_.stop();
  if (!agent_) return;
  try {
    agent_->finish(kFinishMs);
  } catch (const ruvohost::Error& e) {
    log(e.what());
  }
}

void Desktop::key(uint32_t symbol, bool down) {
  if (isLive()) agent_->key(symbol, down);
}

void Desktop::pointer(const Viewer& from, int32_t x, int32_t y, uint32_t buttons) {
  if (!isLive()) return;
  pointing_ = &from;
  pointedMs_ = nowMs();
  const Rect& rect = frame_->framebuffer().rect();
  agent_->pointer(rect.x1 + std::clamp(x, 0, frame_->width() - 1),
                  rect.y1 + std::clamp(y, 0, frame_->height() - 1), buttons);
}

void Desktop::offerText(const std::string& utf8) {
  if (isLive()) agent_->offerText(utf8);
}

// The page may have left when the answer comes.
ruvohost::Agent::Answer Desktop::answerFor(Viewer& viewer, const std::string& what) {
  return [this, asking = &viewer, what](const ruvohost::Outcome& outcome) {
    if (outcome.isDone() || !viewers_.contains(asking)) return;
    asking->tell({{"t", "refused"}, {"what", what}, {"text", outcome.text}});
  };
}

void Desktop::resize(Viewer& viewer, uint32_t width, uint32_t height) {
  if (!isLive()) return;
  const auto tell = answerFor(viewer, "resize");
  agent_->resize(width, height, [this, tell, width, height](const ruvohost::Outcome& outcome) {
    tell(outcome);
    // Of a desktop that has failed it says nothing about the size.
    if (outcome.result != ruvohost::Outcome::Result::kRefused || !isShown()) return;
    if (sizes_.refuses({width, height})) tellAll(modesMessage());
  });
}

void Desktop::selectMonitors(Viewer& viewer, const std::string& numbers) {
  if (isLive()) agent_->selectMonitors(numbers, answerFor(viewer, "monitors"));
}

void Desktop::tellLines(Viewer& viewer) {
  for (const json& line : lines_) viewer.tellLine(line);
}

void Desktop::logLevelsChanged() {
  if (!agent_ || !agent_->isConnected()) return;
  int level = kFactLevel;
  for (const Viewer* viewer : viewers_) level = std::max(level, viewer->logLevel());
  agent_->setLogLevel(static_cast<uint32_t>(level));
}

void Desktop::framebufferChanged(const ruvohost::Framebuffer& framebuffer) {
  for (Viewer* viewer : viewers_) viewer->setFrame(nullptr);
  frame_.reset();
  requested_ = false;
  if (framebuffer.isEmpty()) return;
  frame_ = std::make_unique<Frame>(framebuffer);
  for (Viewer* viewer : viewers_) viewer->setFrame(frame_.get());
  retryMs_ = kFirstRetryMs;
  sizes_.has(
      {static_cast<uint32_t>(framebuffer.width()), static_cast<uint32_t>(framebuffer.height())});
  tellAll(modesMessage());
  const bool wasShown = isShown();
  setShown();
  if (wasShown) return;
  if (wantedWidth_ > 0 &&
      (framebuffer.width() != wantedWidth_ || framebuffer.height() != wantedHeight_)) {
    agent_->resize(static_cast<uint32_t>(wantedWidth_), static_cast<uint32_t>(wantedHeight_),
                   [this](const ruvohost::Outcome& outcome) {
                     if (!outcome.isDone()) log("another size: " + outcome.text);
                     if (whenLive) whenLive();
                   });
  } else if (whenLive) {
    whenLive();
  }
}

void Desktop::coloursChanged(const ruvohost::Framebuffer& framebuffer) {
  if (!frame_) return;
  frame_->colourMapChanged(framebuffer, nowMs());
  for (Viewer* viewer : viewers_) viewer->changed(frame_->bounds());
}

void Desktop::updated(const ruvohost::Update& update) {
  requested_ = false;
  if (!frame_) return;
  const int64_t now = nowMs();
  const Rect& whole = frame_->framebuffer().rect();
  for (const auto* rects : {&update.copied, &update.changed}) {
    for (const Rect& rect : *rects) {
      const Rect area{rect.x1 - whole.x1, rect.y1 - whole.y1, rect.x2 - whole.x1,
                      rect.y2 - whole.y1};
      if (!frame_->changed(area, now)) continue;
      for (Viewer* viewer : viewers_) viewer->changed(area);
    }
  }
  if (!statisticsSet_) {
    statisticsSet_ = true;
    statistics_.expires_after(kStatisticsPeriod);
    statistics_.async_wait([this](error_code error) {
      if (error) return;
      statisticsSet_ = false;
      const char* const mode = polls_ || captureBroken_ ? "polling" : "damage";
      for (Viewer* viewer : viewers_) viewer->tellStatistics(mode);
    });
  }
}

json Desktop::cursorMessage() const {
  if (!cursor_.visible) return {{"t", "cursor"}, {"width", 0}, {"height", 0}, {"x", 0}, {"y", 0}};
  return {
      {"t", "cursor"},         {"width", cursor_.rect.width()}, {"height", cursor_.rect.height()},
      {"x", -cursor_.rect.x1}, {"y", -cursor_.rect.y1},         {"png", encodeCursor(cursor_)}};
}

void Desktop::cursorChanged(const ruvohost::Cursor& cursor) {
  if (cursor.visible == cursor_.visible && cursor.rect == cursor_.rect &&
      cursor.rgba == cursor_.rgba) {
    return;
  }
  cursor_ = cursor;
  tellAll(cursorMessage());
}

void Desktop::cursorMoved(int32_t x, int32_t y) {
  if (!frame_) return;
  const Rect& rect = frame_->framebuffer().rect();
  const json message{{"t", "cursorPos"}, {"x", x - rect.x1}, {"y", y - rect.y1}};
  const Viewer* own = nowMs() - pointedMs_ < kOwnMotionMs ? pointing_ : nullptr;
  for (Viewer* viewer : viewers_) {
    if (viewer != own) viewer->tell(message, false);
  }
}

void Desktop::bell() {
  tellAll({{"t", "bell"}}, false);
}

void Desktop::textCopied(const std::string& utf8) {
  text_ = utf8;
  for (Viewer* viewer : viewers_) {
    if (!viewer->isViewOnly()) viewer->tell({{"t", "clipboard"}, {"text", utf8}});
  }
}

json Desktop::monitorsMessage() const {
  json list = json::array();
  for (const ruvohost::Monitor& monitor : monitors_.all) {
    list.push_back({{"id", list.size() + 1},
                    {"name", monitor.name},
                    {"x", monitor.rect.x1},
                    {"y", monitor.rect.y1},
                    {"width", monitor.rect.width()},
                    {"height", monitor.rect.height()},
                    {"primary", monitor.primary}});
  }
  json selected = json::array();
  const std::string& captured = monitors_.captured;
  for (size_t from = 0; from < captured.size();) {
    const size_t to = std::min(captured.find(',', from), captured.size());
    const int number = std::atoi(captured.substr(from, to - from).c_str());
    if (number > 0) selected.push_back(number);
    from = to + 1;
  }
  return {{"t", "monitors"}, {"list", list}, {"selected", selected}};
}

void Desktop::monitorsChanged(const ruvohost::Monitors& monitors) {
  monitors_ = monitors;
  tellAll(monitorsMessage());
}

void Desktop::captureBroken(bool broken) {
  captureBroken_ = broken;
  if (isShown()) setShown();
}

void Desktop::pollingChanged(bool polling) {
  polls_ = polling;
}

json Desktop::modesMessage() const {
  return {{"t", "modes"}, {"modes", sizes_.offered()}};
}

void Desktop::displaySizesSupported(bool supported) {
  sizes_.setSupported(supported);
  tellAll(modesMessage());
}

void Desktop::displaySizesChanged() {
  sizes_.forgetRefusals();
  tellAll(modesMessage());
}

void Desktop::desktopFailed(const std::string& text) {
  setState(State::kNoDisplay, text);
  tryAgain([this] {
    if (agent_ && agent_->isConnected()) agent_->start();
  });
}

void Desktop::refused(const ruvohost::Refusal& refusal) {
  // Those who asked for the others are answered.
  if (refusal.kind == ruvohost::Refusal::Kind::kDisplaySize ||
      refusal.kind == ruvohost::Refusal::Kind::kMonitors) {
    return;
  }
  log("the agent refuses: " + refusal.text);
  tellAll({{"t", "refused"}, {"what", nameOf(refusal.kind)}, {"text", refusal.text}}, false);
}

void Desktop::logged(const ruvohost::LogLine& line) {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const json message{{"t", "log"},
                     {"level", line.level},
                     {"source", line.source},
                     {"text", line.text},
                     {"time", std::chrono::floor<std::chrono::milliseconds>(now).count()}};
  for (Viewer* viewer : viewers_) viewer->tellLine(message);
  if (line.level > kFactLevel) return;
  lines_.push_back(message);
  if (lines_.size() > kKeptLines) lines_.pop_front();
}

void Desktop::disconnected() {
  lost_ = true;
}

}  // namespace view
