#pragma once

#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/AgentListener.h"
#include "rfb/Point.h"

namespace host {

// Notes what an agent tells: the values of each kind of message, in the order of arrival.
class Transcript : public AgentListener {
 public:
  // For those who listen for long: of each kind, only the last is kept.
  enum class Keep { kAll, kLast };

  struct Colours {
    int first = 0;
    std::vector<ColourMapEntry> entries;
  };
  struct ClosingMessage {
    std::string text, kind;
    uint32_t code = 0;
  };
  struct Owner {
    uint64_t userId = 0;
    std::string xauthority;
  };

  explicit Transcript(Keep keep = Keep::kAll) : keep_(keep) {}

  // How many messages of this name have come.
  int count(std::string_view message) const;
  bool greeted() const { return count("initRectAndPf") > 0; }
  // The first refusal of this kind, null without one.
  const Refusal* refusal(Refusal::Kind kind) const;

  uint32_t magic = 0;
  rfb::Rect initialRect;
  rfb::PixelFormat initialFormat;
  std::vector<PixelBufferInfo> buffers;
  std::vector<Colours> colours;
  std::vector<UpdateMessage> updates;
  std::vector<CursorImage> cursors;
  std::vector<rfb::Point> cursorPositions;
  std::vector<ClosingMessage> closings;
  std::vector<std::string> cutTexts;
  std::string failure;      // "[kind] text" of "desktopFailure"; empty without one
  std::string failureText;  // its parts
  std::string failureKind;
  bool isCaptureBroken = false;
  // Keys and buttons wait for symbols that are new to the keyboard (as the agent's log tells at
  // level 100). An agent that is left drops them.
  bool isInputWaiting = false;
  std::vector<Owner> owners;
  bool areModesSupported = false;
  std::vector<MonitorsMessage> monitors;
  std::vector<LogLine> log;
  std::string lastError;  // "source: text" of the last line of level 0
  std::vector<std::string> unknownNames;
  std::vector<Refusal> refusals;

 protected:
  // A message of this name was noted just now.
  virtual void noted(std::string_view /*message*/) {}

 private:
  void init(uint32_t magicNumber) override;
  void initRectAndPf(const rfb::Rect& rect, const rfb::PixelFormat& format) override;
  void setPixelBuffer(const PixelBufferInfo& info) override;
  void setColourMapEntries(int first, const std::vector<ColourMapEntry>& entries) override;
  void fbUpdate(const UpdateMessage& update) override;
  void setCursorImage(const CursorImage& cursor) override;
  void setCursorPos(int32_t x, int32_t y) override;
  void bell() override;
  void localInput() override;
  void closeClients(const std::string& text, const std::string& kind, uint32_t code) override;
  void serverCutText(const std::string& text) override;
  void desktopFailure(const std::string& text, const std::string& kind) override;
  void captureBroken(bool broken) override;
  void desktopUidChanged(uint64_t userId, const std::string& xauthority) override;
  void displayModesSupported(bool supported) override;
  void displayModesUpdated() override;
  void monitorsUpdated(const MonitorsMessage& message) override;
  void logMsg(const LogLine& line) override;
  void badMsg(const std::string& name) override;
  void refused(const Refusal& refusal) override;
  void disconnected(const std::string& text) override;

  template <typename T>
  void add(std::vector<T>& list, T value) {
    if (keep_ == Keep::kLast) list.clear();
    list.push_back(std::move(value));
  }
  void note(std::string_view message);

  const Keep keep_;
  std::map<std::string, int, std::less<>> counts_;
};

}  // namespace host
