#include "ruvohost/Agent.h"

#include <algorithm>
#include <chrono>
#include <list>

#include "host/AgentConnection.h"
#include "host/AgentProcess.h"
#include "plat/Exception.h"
#include "plat/Files.h"
#include "rfb/ManagedPixelBuffer.h"
#include "rfb/PixelOps.h"

namespace ruvohost {

namespace {

using Clock = std::chrono::steady_clock;
using Result = Outcome::Result;

constexpr int kAnswerTimeoutMs = 10000;
constexpr int kEndTimeoutMs = 5000;
// The name of a message that no agent knows: each is reported back, in turn.
constexpr std::string_view kMarker = "ruvohost-sync-";

// What the calls into the library's own parts throw, as callers know it.
template <typename F>
auto guarded(F call) {
  try {
    return call();
  } catch (const plat::Exception& e) {
    throw Error(e.text());
  }
}

int msUntil(Clock::time_point time) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(time - Clock::now()).count();
  return static_cast<int>(std::max<int64_t>(left, 0));
}

Rect toRect(const rfb::Rect& rect) {
  return {rect.tl.x, rect.tl.y, rect.br.x, rect.br.y};
}

std::vector<Rect> toRects(const rfb::Region& region) {
  std::vector<Rect> rects;
  for (const rfb::Rect& rect : region.rects()) rects.push_back(toRect(rect));
  return rects;
}

PixelFormat toFormat(const rfb::PixelFormat& f) {
  return {f.bpp,     f.depth,    f.bigEndian, f.trueColour, f.redMax,    f.greenMax,
          f.blueMax, f.alphaMax, f.redShift,  f.greenShift, f.blueShift, f.alphaShift};
}

host::LaunchOptions optionsOf(const Launch& launch) {
  host::LaunchOptions options;
  options.agent = launch.agent.empty() ? "ruvoagent" : launch.agent;
  if (options.agent.find('/') == std::string::npos) {
    const std::string found = plat::findProgram(options.agent);
    if (!found.empty()) options.agent = found;
  }
  options.mode = launch.mode;
  options.display = launch.display;
  options.parameters = launch.parameters;
  options.environment = launch.environment;
  options.channel = launch.channel == Launch::Channel::kNamedSocket
                        ? host::LaunchOptions::Channel::kNamedSocket
                        : host::LaunchOptions::Channel::kDescriptor;
  options.useHash = launch.useHash;
  options.userId = launch.userId;
  options.groupId = launch.groupId;
  options.standardOutput = launch.standardOutput;
  options.standardError = launch.standardError;
  options.reuseGrafts = launch.reuseKeys;
  return options;
}

}  // namespace

class Agent::Impl : private host::AgentListener {
 public:
  // A request that waits for its answer.
  struct Pending {
    uint32_t marker;    // that follows it
    bool needsDesktop;  // it fails with the desktop
    // When it is refused, and what shows that it was done.
    std::optional<host::Refusal::Kind> refusal;
    std::function<bool()> isDone;
    Answer answer;
    Clock::time_point begin = Clock::now();
    bool marked = false;  // the marker has come back
    std::optional<Outcome> outcome = std::nullopt;
  };

  Impl(const Launch& launch, Listener& listener)
      : listener_(listener),
        process_(host::AgentProcess::launch(optionsOf(launch))),
        connection_(process_.takeChannel(), this) {}

  host::AgentConnection& connection() { return connection_; }
  host::AgentProcess& process() { return process_; }
  const Framebuffer& framebuffer() const { return framebuffer_; }
  int buffers() const { return buffers_; }
  const std::string& failure() const { return failure_; }
  void forgetFailure() { failure_.clear(); }

  void expect(bool needsDesktop, std::optional<host::Refusal::Kind> refusal,
              std::function<bool()> isDone, Answer answer) {
    pending_.push_back({++markers_, needsDesktop, refusal, std::move(isDone), std::move(answer)});
    try {
      connection_.channel().writeMsg(std::string(kMarker) + std::to_string(markers_));
      connection_.channel().endMsg();
    } catch (const plat::Exception&) {
      // The agent has gone, which the next turn tells.
    }
  }
  int msUntilNext() const {
    int next = connection_.msUntilNext();
    for (const Pending& pending : pending_) {
      const int left = pending.outcome ? 0 : msUntil(deadline(pending));
      if (next < 0 || left < next) next = left;
    }
    return next;
  }
  void turn(int timeoutMs) {
    const int next = msUntilNext();
    if (next >= 0 && (timeoutMs < 0 || next < timeoutMs)) timeoutMs = next;
    connection_.process(timeoutMs);
    settle();
  }

 private:
  static Clock::time_point deadline(const Pending& pending) {
    return pending.begin + std::chrono::milliseconds(kAnswerTimeoutMs);
  }

  // Answers what has been decided.
  void settle() {
    for (Pending& pending : pending_) {
      if (pending.outcome) continue;
      if (pending.needsDesktop && !failure_.empty()) {
        pending.outcome = Outcome{Result::kRefused, failure_};
      } else if (pending.marked && pending.isDone()) {
        pending.outcome = Outcome{};
      } else if (!connection_.isConnected()) {
        pending.outcome = Outcome{Result::kDisconnected, "the agent has gone"};
      } else if (Clock::now() >= deadline(pending)) {
        pending.outcome = Outcome{Result::kTimedOut, "the agent does not answer"};
      }
    }
    // An answer may bring new requests.
    for (;;) {
      const auto decided =
          std::find_if(pending_.begin(), pending_.end(),
                       [](const Pending& pending) { return pending.outcome.has_value(); });
      if (decided == pending_.end()) return;
      const Pending pending = std::move(*decided);
      pending_.erase(decided);
      Outcome outcome = *pending.outcome;
      outcome.ms = std::chrono::duration<double, std::milli>(Clock::now() - pending.begin).count();
      if (pending.answer) pending.answer(outcome);
    }
  }

  void showBuffer() {
    std::vector<Framebuffer::Colour> colours;
    for (const host::ColourMapEntry& entry : connection_.colourMap()) {
      colours.push_back({entry.red, entry.green, entry.blue});
    }
    const host::PixelBufferInfo& info = connection_.pixelBuffer();
    framebuffer_ = connection_.pixels()
                       ? Framebuffer(connection_.segment(), connection_.pixels(), toRect(info.rect),
                                     info.stride, toFormat(info.format), std::move(colours))
                       : Framebuffer();
  }

  void initRectAndPf(const rfb::Rect& rect, const rfb::PixelFormat& format) override {
    listener_.greeted(toRect(rect), toFormat(format));
  }
  void setPixelBuffer(const host::PixelBufferInfo&) override {
    ++buffers_;
    failure_.clear();
    showBuffer();
    if (framebuffer_.isEmpty()) failure_ = connection_.segmentError();
    listener_.framebufferChanged(framebuffer_);
  }
  void setColourMapEntries(int, const std::vector<host::ColourMapEntry>&) override {
    showBuffer();
    listener_.coloursChanged(framebuffer_);
  }
  void fbUpdate(const host::UpdateMessage& update) override {
    listener_.updated({toRects(update.copied), update.dx, update.dy, toRects(update.changed)});
  }
  void setCursorImage(const host::CursorImage& image) override {
    Cursor cursor;
    cursor.visible = image.visible && !image.rect.isEmpty();
    if (cursor.visible) {
      cursor.rect = toRect(image.rect);
      const auto pixels = std::make_shared<std::vector<uint8_t>>(image.pixels);
      rfb::FullFramePixelBuffer source(image.format, image.rect, pixels->data());
      // The bytes red, green, blue, alpha in this order.
      const rfb::PixelFormat rgba(32, 32, true, true, 255, 255, 255, 24, 16, 8, 0, 255);
      rfb::ManagedPixelBuffer target(rgba, image.rect);
      rfb::combinePixels(target, image.rect, source, image.rect.tl, rfb::CopyOp());
      cursor.rgba.resize(static_cast<size_t>(target.sizeBytes()));
      target.getImage(cursor.rgba.data(), image.rect);
    }
    listener_.cursorChanged(cursor);
  }
  void setCursorPos(int32_t x, int32_t y) override { listener_.cursorMoved(x, y); }
  void bell() override { listener_.bell(); }
  void localInput() override { listener_.localInput(); }
  void closeClients(const std::string& text, const std::string&, uint32_t) override {
    listener_.closeViewers(text);
  }
  void serverCutText(const std::string& text) override { listener_.textCopied(text); }
  void desktopFailure(const std::string& text, const std::string& kind) override {
    failure_ = kind.empty() ? text : "[" + kind + "] " + text;
    listener_.desktopFailed(failure_);
  }
  void captureBroken(bool broken) override { listener_.captureBroken(broken); }
  void desktopUidChanged(uint64_t userId, const std::string& xauthority) override {
    listener_.desktopOwnerChanged(userId, xauthority);
  }
  void displayModesSupported(bool supported) override {
    listener_.displaySizesSupported(supported);
  }
  void displayModesUpdated() override { listener_.displaySizesChanged(); }
  void monitorsUpdated(const host::MonitorsMessage& message) override {
    Monitors monitors{{}, message.parameter, message.selection};
    for (const plat::DisplayInfo& info : message.monitors) {
      monitors.all.push_back(
          {info.name.str(), {info.left, info.top, info.right, info.bottom}, info.primary});
    }
    listener_.monitorsChanged(monitors);
  }
  void logMsg(const host::LogLine& line) override {
    listener_.logged({line.level, line.source, line.text});
  }
  void polling(bool on) override { listener_.pollingChanged(on); }
  void refused(const host::Refusal& refusal) override {
    const auto first = std::find_if(pending_.begin(), pending_.end(), [&](const Pending& p) {
      return !p.outcome && p.refusal == refusal.kind;
    });
    if (first != pending_.end()) first->outcome = Outcome{Result::kRefused, refusal.text};
    listener_.refused({static_cast<Refusal::Kind>(refusal.kind), refusal.text, refusal.keysym});
  }
  void badMsg(const std::string& name) override {
    for (Pending& pending : pending_) {
      if (name == std::string(kMarker) + std::to_string(pending.marker)) pending.marked = true;
    }
  }
  void disconnected(const std::string&) override { listener_.disconnected(); }

  Listener& listener_;
  std::list<Pending> pending_;
  uint32_t markers_ = 0;
  Framebuffer framebuffer_;
  int buffers_ = 0;
  std::string failure_;
  host::AgentProcess process_;
  host::AgentConnection connection_;
};

Agent::Agent(const Launch& launch, Listener& listener)
    : impl_(guarded([&] { return std::make_unique<Impl>(launch, listener); })) {}

Agent::~Agent() {
  impl_->connection().close();
  impl_->process().wait(kEndTimeoutMs);
}

int Agent::fd() const {
  return impl_->connection().fd();
}

short Agent::events() const {
  return impl_->connection().events();
}

int Agent::msUntilNext() const {
  return impl_->msUntilNext();
}

void Agent::process() {
  impl_->turn(0);
}

bool Agent::processUntil(const std::function<bool()>& done, int timeoutMs) {
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  while (!done()) {
    if (!isConnected()) return false;
    const int left = timeoutMs < 0 ? -1 : msUntil(deadline);
    if (left == 0) return false;
    impl_->turn(left);
  }
  return true;
}

bool Agent::isConnected() const {
  return impl_->connection().isConnected();
}

pid_t Agent::pid() const {
  return impl_->process().pid();
}

std::optional<int> Agent::finish(int timeoutMs) {
  guarded([&] { impl_->connection().finish(timeoutMs); });
  impl_->turn(0);
  return impl_->process().wait(timeoutMs);
}

const Framebuffer& Agent::framebuffer() const {
  return impl_->framebuffer();
}

void Agent::start() {
  impl_->forgetFailure();
  impl_->connection().start();
}

void Agent::stop() {
  impl_->connection().stop();
}

void Agent::requestUpdate() {
  impl_->connection().fbUpdateRequest();
}

void Agent::key(uint32_t keysym, bool down) {
  impl_->connection().keyEvent(keysym, down);
}

void Agent::pointer(int32_t x, int32_t y, uint32_t buttons) {
  impl_->connection().pointerEvent(x, y, buttons);
}

void Agent::pointerBy(int32_t dx, int32_t dy, uint32_t buttons) {
  impl_->connection().pointerEvent(dx, dy, buttons, true);
}

void Agent::offerText(std::string_view utf8) {
  impl_->connection().clientCutText(utf8);
}

void Agent::setParameters(const std::vector<std::pair<std::string, std::string>>& parameters) {
  std::vector<host::AgentConnection::Parameter> entries;
  for (const auto& [name, value] : parameters) entries.push_back({name, value});
  impl_->connection().setParams(entries);
}

void Agent::resize(uint32_t width, uint32_t height) {
  impl_->connection().setDisplayMode(width, height);
}

void Agent::selectMonitors(std::string_view selection) {
  impl_->connection().setMonitor(selection);
}

void Agent::setDesktopOwner(uint64_t userId, uint64_t groupId) {
  impl_->connection().setXServerOwner(userId, groupId);
}

void Agent::setLogLevel(uint32_t level, std::string_view source) {
  impl_->connection().setLogLevel(level, source);
}

void Agent::start(Answer answer) {
  const int before = impl_->buffers();
  start();
  impl_->expect(
      true, std::nullopt,
      [this, before] {
        // The colours of a colour-map format come in a message of their own.
        const Framebuffer& now = framebuffer();
        return impl_->buffers() > before && (now.format().trueColour || !now.colours().empty());
      },
      std::move(answer));
}

void Agent::resize(uint32_t width, uint32_t height, Answer answer) {
  resize(width, height);
  impl_->expect(
      true, host::Refusal::Kind::kDisplaySize,
      [this, width, height] {
        const Framebuffer& now = framebuffer();
        return !now.isEmpty() && now.width() == static_cast<int64_t>(width) &&
               now.height() == static_cast<int64_t>(height);
      },
      std::move(answer));
}

void Agent::selectMonitors(std::string_view selection, Answer answer) {
  const int before = impl_->buffers();
  selectMonitors(selection);
  impl_->expect(
      true, host::Refusal::Kind::kMonitors, [this, before] { return impl_->buffers() > before; },
      std::move(answer));
}

void Agent::setParameters(const std::vector<std::pair<std::string, std::string>>& parameters,
                          Answer answer) {
  setParameters(parameters);
  impl_->expect(
      false, host::Refusal::Kind::kParameter, [] { return true; }, std::move(answer));
}

void Agent::sync(Answer answer) {
  impl_->expect(
      false, std::nullopt, [] { return true; }, std::move(answer));
}

Outcome Agent::await(const std::function<void(Answer answer)>& request) {
  std::optional<Outcome> result;
  request([&result](const Outcome& outcome) { result = outcome; });
  while (!result) impl_->turn(-1);
  return *result;
}

}  // namespace ruvohost
