#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Channel.h"
#include "Guest.h"
#include "LeastTime.h"
#include "Replica.h"
#include "Secrets.h"

namespace view {

// One page: what it asks for, and what it is shown, at its own pace.
class Viewer : public Guest {
 public:
  // Takes what a page asks of the desktop.
  class Callback {
   public:
    virtual void left(Viewer& viewer) = 0;
    virtual void key(uint32_t symbol, bool down) = 0;
    virtual void pointer(const Viewer& from, int32_t x, int32_t y, uint32_t buttons) = 0;
    virtual void offerText(const std::string& utf8) = 0;
    virtual void resize(Viewer& viewer, uint32_t width, uint32_t height) = 0;
    virtual void selectMonitors(Viewer& viewer, const std::string& numbers) = 0;
    // Gives it, with tellLine(), what the agent has logged lately.
    virtual void tellLines(Viewer& viewer) = 0;
    virtual void logLevelsChanged() = 0;

   protected:
    ~Callback() = default;
  };

  // Neither is owned; the desktop may go first and then says so.
  Viewer(Callback& desktop, Channel& channel, bool viewOnly);
  ~Viewer() override;
  Viewer(const Viewer&) = delete;
  Viewer& operator=(const Viewer&) = delete;

  void received(const std::string& text) override;

  // A JSON object for the page. One that can be done without is left out when the page is slow.
  void tell(const nlohmann::json& message, bool needed = true);
  // A message about a line of the log, if the page wants to see those of its level.
  void tellLine(const nlohmann::json& line);
  void close(uint16_t code, const std::string& reason) { channel_.close(code, reason); }
  void desktopGone() { desktop_ = nullptr; }

  bool isViewOnly() const { return viewOnly_; }
  int logLevel() const { return logLevel_; }

  // There is another frame, of another size; null for none.
  void setFrame(const Frame* frame);
  void changed(const Rect& area);
  // Whether the page has drawn enough of what it got to be given more.
  bool isReady() const;
  // Sends what the page can take now.
  void sendFrame(Workers& workers, bool moving, int64_t nowMs);
  int msUntilRest(int64_t nowMs) const;
  // Figures of what was sent, if there was something since the last time.
  void tellStatistics(const std::string& mode);

 private:
  struct Sent {
    uint32_t frame;
    int64_t ms;
    bool small;
  };

  // Whether the page keeps within the rate that pages keep within.
  bool isTooFast(size_t bytes);
  void drawn(uint32_t frame);
  // Pictures that change are to take no more than so many bytes a pixel.
  void adaptQuality(const std::vector<Piece>& pieces);
  void reject(uint16_t code, const std::string& why);
  void handle(const std::string& type, const nlohmann::json& message);
  void key(const nlohmann::json& message);
  void pointer(const nlohmann::json& message);
  void releaseAll();

  Callback* desktop_;
  Channel& channel_;
  const bool viewOnly_;
  bool rejected_ = false;
  int logLevel_ = -1;

  std::set<uint32_t> keys_;
  uint32_t buttons_ = 0;
  int32_t x_ = 0, y_ = 0;

  std::optional<Replica> replica_;
  uint32_t frameNumber_ = 0;
  std::deque<Sent> undrawn_;
  LeastTime roundTrip_;
  bool isSlow_ = false;
  int quality_;
  std::map<std::string, uint64_t> encodings_;
  uint64_t bytes_ = 0, bytesTold_ = 0;

  double messageCredit_, byteCredit_;
  int64_t creditMs_;
};

}  // namespace view
