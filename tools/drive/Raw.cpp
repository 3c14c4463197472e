#include <algorithm>
#include <cmath>
#include <iterator>

#include "JsonOutput.h"
#include "MessagePrinter.h"
#include "View.h"
#include "plat/Exception.h"

namespace drive {

namespace {

Json json(const rfb::Rect& rect) {
  return rectJson(rect);
}

Json json(const rfb::Region& region) {
  Json list = Json::array();
  for (const rfb::Rect& rect : region.rects()) list.push_back(json(rect));
  return list;
}

Json json(const rfb::PixelFormat& format) {
  return {{"bpp", format.bpp},
          {"depth", format.depth},
          {"bigEndian", format.bigEndian},
          {"trueColour", format.trueColour},
          {"max", {format.redMax, format.greenMax, format.blueMax, format.alphaMax}},
          {"shift", {format.redShift, format.greenShift, format.blueShift, format.alphaShift}},
          {"text", format.str()}};
}

Json json(const plat::SharedMemDescriptor& segment) {
  if (segment.kind == plat::SharedMemDescriptor::Kind::kSysV) {
    return {{"kind", "sysv"}, {"size", segment.size}, {"id", segment.id}};
  }
  return {{"kind", "posix"},
          {"size", segment.size},
          {"name", segment.name.str()},
          {"isFile", segment.isFile},
          {"pos", segment.pos}};
}

Json json(const host::MonitorsMessage& message) {
  Json monitors = Json::array();
  for (const plat::DisplayInfo& monitor : message.monitors) {
    monitors.push_back(monitorJson(monitor));
  }
  return {
      {"monitors", monitors}, {"parameter", message.parameter}, {"selection", message.selection}};
}

Json json(const host::PixelBufferInfo& info) {
  Json body = {{"format", json(info.format)},
               {"rect", json(info.rect)},
               {"stride", info.stride},
               {"segmentChanged", info.segmentChanged}};
  if (info.segmentChanged) body["segment"] = json(info.segment);
  return body;
}

Json json(const host::Transcript::Colours& colours) {
  Json list = Json::array();
  for (const host::ColourMapEntry& entry : colours.entries) {
    list.push_back(plat::format("#%02x%02x%02x", entry.red, entry.green, entry.blue));
  }
  return {{"firstColour", colours.first}, {"colours", list}};
}

Json json(const host::UpdateMessage& update) {
  return {{"copied", json(update.copied)},
          {"delta", {update.dx, update.dy}},
          {"changed", json(update.changed)}};
}

Json json(const host::CursorImage& cursor) {
  Json body = {{"visible", cursor.visible}};
  if (cursor.visible) {
    body["format"] = json(cursor.format);
    body["rect"] = json(cursor.rect);
    body["threshold"] = cursor.threshold;
    body["length"] = cursor.pixels.size();
  }
  return body;
}

// What the last message of each name said.
struct Body {
  std::string_view message;
  Json (*of)(const host::Transcript& seen);
};
using Seen = host::Transcript;
constexpr Body kBodies[] = {
    {"init",
     [](const Seen& s) {
       return Json{{"magic", plat::format("0x%08X", s.magic)}};
     }},
    {"initRectAndPf",
     [](const Seen& s) {
       return Json{{"rect", json(s.initialRect)}, {"format", json(s.initialFormat)}};
     }},
    {"setPixelBuffer", [](const Seen& s) { return json(s.buffers.back()); }},
    {"setColourMapEntries", [](const Seen& s) { return json(s.colours.back()); }},
    {"fbUpdate", [](const Seen& s) { return json(s.updates.back()); }},
    {"setCursorImage", [](const Seen& s) { return json(s.cursors.back()); }},
    {"setCursorPos",
     [](const Seen& s) {
       return Json{{"x", s.cursorPositions.back().x}, {"y", s.cursorPositions.back().y}};
     }},
    {"closeClients",
     [](const Seen& s) {
       const auto& [text, kind, code] = s.closings.back();
       return Json{{"text", text}, {"kind", kind}, {"code", code}};
     }},
    {"serverCutText",
     [](const Seen& s) {
       return Json{{"length", s.cutTexts.back().size()}, {"text", s.cutTexts.back()}};
     }},
    {"desktopFailure",
     [](const Seen& s) {
       return Json{{"text", s.failureText}, {"kind", s.failureKind}};
     }},
    {"captureBroken",
     [](const Seen& s) {
       return Json{{"broken", s.isCaptureBroken}};
     }},
    {"desktopUidChanged",
     [](const Seen& s) {
       return Json{{"userId", s.owners.back().userId}, {"xauthority", s.owners.back().xauthority}};
     }},
    {"displayModesSupported",
     [](const Seen& s) {
       return Json{{"supported", s.areModesSupported}};
     }},
    {"monitorsUpdated", [](const Seen& s) { return json(s.monitors.back()); }},
    {"logMsg",
     [](const Seen& s) {
       const host::LogLine& line = s.log.back();
       return Json{{"level", line.level}, {"source", line.source}, {"text", line.text}};
     }},
    {"badMsg",
     [](const Seen& s) {
       return Json{{"name", s.unknownNames.back()}};
     }},
    {"disconnected",
     [](const Seen&) {
       return Json{{"text", ""}};
     }},
};

// Asks for each next update.
class AskingPrinter : public MessagePrinter {
 public:
  void setAgent(host::AgentConnection& agent) { agent_ = &agent; }

 private:
  void noted(std::string_view message) override {
    MessagePrinter::noted(message);
    if (agent_ && message == "fbUpdate") agent_->fbUpdateRequest();
  }

  host::AgentConnection* agent_ = nullptr;
};

}  // namespace

double MessagePrinter::seconds() const {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin_).count();
}

void MessagePrinter::noted(std::string_view message) {
  Json object = {{"time", std::round(seconds() * 1e6) / 1e6}, {"message", message}};
  const auto* body = std::find_if(std::begin(kBodies), std::end(kBodies),
                                  [&](const Body& b) { return b.message == message; });
  if (body != std::end(kBodies)) object.update(body->of(*this));
  printJsonLine(object);
}

void raw(const SessionOptions& sessionOptions, const RawOptions& options) {
  AskingPrinter printer;
  Session session(sessionOptions, printer);
  if (!options.noStart) {
    session.agent().start();
    session.agent().fbUpdateRequest();
    printer.setAgent(session.agent());
  }
  session.run(options.seconds, [] { return false; });
  session.finish();
}

}  // namespace drive
