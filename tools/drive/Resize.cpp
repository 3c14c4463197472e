#include <chrono>
#include <cstdio>

#include "Commands.h"

namespace drive {

namespace {

constexpr int kTimeoutMs = 10000;

struct Size {
  int width = 0, height = 0;
};

// From "1600x900".
bool parse(const std::string& text, Size& size) {
  int length = 0;
  return std::sscanf(text.c_str(), "%5dx%5d%n", &size.width, &size.height, &length) == 2 &&
         length == static_cast<int>(text.size()) && size.width > 0 && size.height > 0;
}

class ResizeRecorder : public Recorder {
 public:
  void setPixelBuffer(const host::PixelBufferInfo& info) override {
    Recorder::setPixelBuffer(info);
    rect = info.rect;
  }
  void displayModesSupported(bool supported) override { unsupported = !supported; }
  void logMsg(const host::LogLine& line) override {
    Recorder::logMsg(line);
    if (line.source != "Randr") return;
    if (line.level == 0) {
      refusal = line.text + (reason.empty() ? "" : ": " + reason);
    } else if (line.text.starts_with("Ignoring")) {
      refusal = line.text;
    }
    reason = line.text;
  }

  rfb::Rect rect;
  bool unsupported = false;
  std::string refusal;
  std::string reason;  // the agent says why before it says that it can't
};

void resize(const SessionOptions& options, const std::string& text) {
  Size size;
  parse(text, size);
  ResizeRecorder recorder;
  Session session(options, recorder);
  session.startDesktop();
  // A change between monitors can leave the size as it is.
  const int before = recorder.buffers();
  const auto hasSize = [&] {
    return recorder.buffers() > before && recorder.rect.width() == size.width &&
           recorder.rect.height() == size.height;
  };
  const auto begin = std::chrono::steady_clock::now();
  session.agent().setDisplayMode(static_cast<uint32_t>(size.width),
                                 static_cast<uint32_t>(size.height));
  session.waitUntil([&] { return hasSize() || recorder.unsupported || !recorder.refusal.empty(); },
                    kTimeoutMs, "the framebuffer of the new size");
  if (recorder.unsupported) throw Failure("the X server has no RANDR");
  if (!recorder.refusal.empty()) throw Failure(recorder.refusal);
  const double ms =
      std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count();
  std::printf("%dx%d after %.1f ms\n", size.width, size.height, ms);
  session.finish();
}

}  // namespace

void addResizeCommand(CLI::App& app, SessionOptions& session) {
  CLI::App* command = app.add_subcommand("resize", "Gives the desktop another size");
  command->add_option("size", "Width and height in pixels, such as 1600x900")
      ->required()
      ->check([](const std::string& text) {
        Size size;
        return parse(text, size) ? "" : "'" + text + "' is not WIDTHxHEIGHT";
      });
  command->callback(
      [&session, command] { resize(session, command->get_option("size")->as<std::string>()); });
}

}  // namespace drive
