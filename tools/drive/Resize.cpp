#include <chrono>
#include <cstdio>
#include <memory>

#include "Commands.h"
#include "JsonOutput.h"

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

void resize(const SessionOptions& options, const std::string& text, bool asJson) {
  Size size;
  parse(text, size);
  host::Transcript seen;
  Session session(options, seen);
  session.startDesktop();
  // A change between monitors can leave the size as it is.
  const int before = seen.count("setPixelBuffer");
  const auto hasSize = [&] {
    const rfb::Rect& rect = seen.buffers.back().rect;
    return seen.count("setPixelBuffer") > before && rect.width() == size.width &&
           rect.height() == size.height;
  };
  const auto refused = [&] { return seen.refusal(host::Refusal::Kind::kDisplaySize); };
  const auto begin = std::chrono::steady_clock::now();
  session.agent().setDisplayMode(static_cast<uint32_t>(size.width),
                                 static_cast<uint32_t>(size.height));
  session.waitUntil([&] { return hasSize() || refused(); }, kTimeoutMs,
                    "the framebuffer of the new size");
  if (refused()) throw session.refusal(refused()->text);
  const double ms =
      std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count();
  if (asJson) {
    printJsonLine({{"width", size.width}, {"height", size.height}, {"ms", ms}});
  } else {
    std::printf("%dx%d after %.1f ms\n", size.width, size.height, ms);
  }
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
  auto asJson = std::make_shared<bool>(false);
  command->add_flag("--json", *asJson, "As JSON");
  setExamples(*command, "resize 1600x900", "resize 1280x720 --json");
  command->callback([&session, command, asJson] {
    resize(session, command->get_option("size")->as<std::string>(), *asJson);
  });
}

}  // namespace drive
