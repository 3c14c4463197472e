#include <chrono>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "Commands.h"
#include "View.h"
#include "plat/Exception.h"

namespace drive {

namespace {

using Json = nlohmann::ordered_json;

Json json(const rfb::Rect& rect) {
  return Json::array({rect.tl.x, rect.tl.y, rect.br.x, rect.br.y});
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

class Printer : public Recorder {
 public:
  void setAgent(host::AgentConnection& agent) { agent_ = &agent; }

  void init(uint32_t magic) override {
    Recorder::init(magic);
    print("init", {{"magic", plat::format("0x%08X", magic)}});
  }
  void initRectAndPf(const rfb::Rect& rect, const rfb::PixelFormat& format) override {
    Recorder::initRectAndPf(rect, format);
    print("initRectAndPf", {{"rect", json(rect)}, {"format", json(format)}});
  }
  void setPixelBuffer(const host::PixelBufferInfo& info) override {
    Recorder::setPixelBuffer(info);
    Json body = {{"format", json(info.format)},
                 {"rect", json(info.rect)},
                 {"stride", info.stride},
                 {"segmentChanged", info.segmentChanged}};
    if (info.segmentChanged) body["segment"] = json(info.segment);
    print("setPixelBuffer", body);
  }
  void setColourMapEntries(int first, const std::vector<host::ColourMapEntry>& entries) override {
    Json colours = Json::array();
    for (const host::ColourMapEntry& entry : entries) {
      colours.push_back(plat::format("#%02x%02x%02x", entry.red, entry.green, entry.blue));
    }
    print("setColourMapEntries", {{"firstColour", first}, {"colours", colours}});
  }
  void fbUpdate(const host::UpdateMessage& update) override {
    print("fbUpdate", {{"copied", json(update.copied)},
                       {"delta", {update.dx, update.dy}},
                       {"changed", json(update.changed)}});
    if (agent_) agent_->fbUpdateRequest();
  }
  void setCursorImage(const host::CursorImage& cursor) override {
    Json body = {{"visible", cursor.visible}};
    if (cursor.visible) {
      body["format"] = json(cursor.format);
      body["rect"] = json(cursor.rect);
      body["threshold"] = cursor.threshold;
      body["length"] = cursor.pixels.size();
    }
    print("setCursorImage", body);
  }
  void setCursorPos(int32_t x, int32_t y) override { print("setCursorPos", {{"x", x}, {"y", y}}); }
  void bell() override { print("bell", Json::object()); }
  void localInput() override { print("localInput", Json::object()); }
  void closeClients(const std::string& text, const std::string& kind, uint32_t code) override {
    print("closeClients", {{"text", text}, {"kind", kind}, {"code", code}});
  }
  void serverCutText(const std::string& text) override {
    print("serverCutText", {{"length", text.size()}, {"text", text}});
  }
  void desktopFailure(const std::string& text, const std::string& kind) override {
    Recorder::desktopFailure(text, kind);
    print("desktopFailure", {{"text", text}, {"kind", kind}});
  }
  void captureBroken(bool broken) override { print("captureBroken", {{"broken", broken}}); }
  void desktopUidChanged(uint64_t userId, const std::string& xauthority) override {
    print("desktopUidChanged", {{"userId", userId}, {"xauthority", xauthority}});
  }
  void displayModesSupported(bool supported) override {
    print("displayModesSupported", {{"supported", supported}});
  }
  void displayModesUpdated() override { print("displayModesUpdated", Json::object()); }
  void monitorsUpdated(const host::MonitorsMessage& message) override {
    Json monitors = Json::array();
    for (const plat::DisplayInfo& monitor : message.monitors) {
      monitors.push_back({{"name", monitor.name.str()},
                          {"primary", monitor.primary},
                          {"depth", monitor.depth},
                          {"rect", {monitor.left, monitor.top, monitor.right, monitor.bottom}}});
    }
    print("monitorsUpdated", {{"monitors", monitors},
                              {"parameter", message.parameter},
                              {"selection", message.selection}});
  }
  void logMsg(const host::LogLine& line) override {
    Recorder::logMsg(line);
    print("logMsg", {{"level", line.level}, {"source", line.source}, {"text", line.text}});
  }
  void badMsg(const std::string& name) override { print("badMsg", {{"name", name}}); }
  void disconnected(const std::string& text) override {
    Recorder::disconnected(text);
    print("disconnected", {{"text", text}});
  }

  double seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin_).count();
  }

 private:
  void print(const char* name, const Json& body) {
    Json object = {{"time", std::round(seconds() * 1e6) / 1e6}, {"message", name}};
    object.update(body);
    const std::string text = object.dump(-1, ' ', false, Json::error_handler_t::replace);
    std::printf("%s\n", text.c_str());
    std::fflush(stdout);
  }

  const std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
  host::AgentConnection* agent_ = nullptr;
};

}  // namespace

void raw(const SessionOptions& sessionOptions, const RawOptions& options) {
  Printer printer;
  Session session(sessionOptions, printer);
  if (!options.noStart) {
    session.agent().start();
    session.agent().fbUpdateRequest();
    printer.setAgent(session.agent());
  }
  const double begin = printer.seconds();
  const auto over = [&] {
    return interrupted() || (options.seconds > 0 && printer.seconds() - begin >= options.seconds);
  };
  while (!over() && session.agent().isConnected()) session.loop().process(100);
  session.finish();
}

}  // namespace drive
