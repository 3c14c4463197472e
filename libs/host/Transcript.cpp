#include "host/Transcript.h"

#include <algorithm>

namespace host {

int Transcript::count(std::string_view message) const {
  const auto it = counts_.find(message);
  return it == counts_.end() ? 0 : it->second;
}

const Refusal* Transcript::refusal(Refusal::Kind kind) const {
  const auto it = std::find_if(refusals.begin(), refusals.end(),
                               [&](const Refusal& refusal) { return refusal.kind == kind; });
  return it == refusals.end() ? nullptr : &*it;
}

void Transcript::note(std::string_view message) {
  const auto it = counts_.find(message);
  if (it == counts_.end()) {
    counts_.emplace(message, 1);
  } else {
    ++it->second;
  }
  noted(message);
}

void Transcript::init(uint32_t magicNumber) {
  magic = magicNumber;
  note("init");
}

void Transcript::initRectAndPf(const rfb::Rect& rect, const rfb::PixelFormat& format) {
  initialRect = rect;
  initialFormat = format;
  note("initRectAndPf");
}

void Transcript::setPixelBuffer(const PixelBufferInfo& info) {
  add(buffers, info);
  note("setPixelBuffer");
}

void Transcript::setColourMapEntries(int first, const std::vector<ColourMapEntry>& entries) {
  add(colours, {first, entries});
  note("setColourMapEntries");
}

void Transcript::fbUpdate(const UpdateMessage& update) {
  add(updates, update);
  note("fbUpdate");
}

void Transcript::setCursorImage(const CursorImage& cursor) {
  add(cursors, cursor);
  note("setCursorImage");
}

void Transcript::setCursorPos(int32_t x, int32_t y) {
  add(cursorPositions, {x, y});
  note("setCursorPos");
}

void Transcript::bell() {
  note("bell");
}

void Transcript::localInput() {
  note("localInput");
}

void Transcript::closeClients(const std::string& text, const std::string& kind, uint32_t code) {
  add(closings, {text, kind, code});
  note("closeClients");
}

void Transcript::serverCutText(const std::string& text) {
  add(cutTexts, text);
  note("serverCutText");
}

void Transcript::desktopFailure(const std::string& text, const std::string& kind) {
  failureText = text;
  failureKind = kind;
  failure = kind.empty() ? text : "[" + kind + "] " + text;
  note("desktopFailure");
}

void Transcript::captureBroken(bool broken) {
  isCaptureBroken = broken;
  note("captureBroken");
}

void Transcript::desktopUidChanged(uint64_t userId, const std::string& xauthority) {
  add(owners, {userId, xauthority});
  note("desktopUidChanged");
}

void Transcript::displayModesSupported(bool supported) {
  areModesSupported = supported;
  note("displayModesSupported");
}

void Transcript::displayModesUpdated() {
  note("displayModesUpdated");
}

void Transcript::monitorsUpdated(const MonitorsMessage& message) {
  add(monitors, message);
  note("monitorsUpdated");
}

void Transcript::logMsg(const LogLine& line) {
  add(log, line);
  if (line.level == 0) lastError = line.source + ": " + line.text;
  if (line.text == "Input waits for new symbols") isInputWaiting = true;
  if (line.text == "Input goes on") isInputWaiting = false;
  note("logMsg");
}

void Transcript::badMsg(const std::string& name) {
  add(unknownNames, name);
  note("badMsg");
}

void Transcript::refused(const Refusal& refusal) {
  refusals.push_back(refusal);
}

void Transcript::disconnected(const std::string& text) {
  if (!text.empty() && failure.empty()) failure = text;
  note("disconnected");
}

}  // namespace host
