#include <xkbcommon/xkbcommon.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "Commands.h"
#include "plat/Exception.h"
#include "plat/Utf8.h"

namespace drive {

namespace {

struct PointerOptions {
  int x = 0, y = 0;  // where to
  int fromX = 0, fromY = 0;
  int button = 1;
  int count = 1;
};

constexpr int kWheelUp = 4, kWheelDown = 5;
constexpr int kDragSteps = 16;
// Without a word from an agent that types.
constexpr int kTypingTimeoutMs = 10000;

// The code points of UTF-8 text. Throws Failure.
std::vector<uint32_t> codePoints(const std::string& text) {
  if (!plat::isValidUtf8(text)) throw Failure("the text is not valid UTF-8");
  std::vector<uint32_t> points;
  for (size_t i = 0; i < text.size();) {
    const auto lead = static_cast<unsigned char>(text[i]);
    const size_t length = lead < 0x80 ? 1 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
    uint32_t point = length == 1 ? lead : lead & (0x7fu >> length);
    for (size_t k = 1; k < length; ++k) {
      point = point << 6 | (static_cast<unsigned char>(text[i + k]) & 0x3f);
    }
    points.push_back(point);
    i += length;
  }
  return points;
}

uint32_t keysymOfCharacter(uint32_t point) {
  if (point == '\n') return XKB_KEY_Return;
  const uint32_t keysym = xkb_utf32_to_keysym(point);
  if (keysym == XKB_KEY_NoSymbol) throw Failure(plat::format("no key symbol for U+%04X", point));
  return keysym;
}

uint32_t maskOf(int button) {
  return 1u << (button - 1);
}

// Keeps the agent's word on symbols that it can't type.
class InputRecorder : public Recorder {
 public:
  void logMsg(const host::LogLine& line) override {
    Recorder::logMsg(line);
    ++lines;
    if (line.text == "Input waits for new symbols") inputWaits = true;
    if (line.text == "Input goes on") inputWaits = false;
    if (!line.text.starts_with("Keyboard mapping full")) return;
    const size_t number = line.text.rfind("0x");
    if (number != std::string::npos) {
      ignored.push_back(
          static_cast<uint32_t>(std::strtoul(line.text.c_str() + number, nullptr, 16)));
    }
  }

  void badMsg(const std::string&) override { synced = true; }

  std::vector<uint32_t> ignored;
  size_t lines = 0;
  bool inputWaits = false;
  bool synced = false;
};

// An agent that gets input and nothing else.
class InputSession {
 public:
  explicit InputSession(const SessionOptions& options) : session_(options, recorder_) {}

  host::AgentConnection& agent() { return session_.agent(); }
  void pause(int ms) {
    agent().processUntil([] { return false; }, ms);
  }
  // Throws Failure if something was not typed.
  void finish() {
    // Symbols that are new to the keyboard wait for other programs to see it change, and what comes
    // behind them waits too. An agent that is left drops all that.
    agent().channel().writeMsg("sync");
    agent().channel().endMsg();
    session_.waitUntil([&] { return recorder_.synced; }, kTypingTimeoutMs, "the agent");
    for (size_t lines = 0; recorder_.inputWaits && lines != recorder_.lines;) {
      lines = recorder_.lines;
      agent().processUntil([&] { return recorder_.lines != lines; }, kTypingTimeoutMs);
    }
    session_.finish();
    const std::vector<uint32_t>& ignored = recorder_.ignored;
    if (ignored.empty()) return;
    char text[64];
    if (xkb_keysym_to_utf8(ignored[0], text, sizeof text) <= 1) {
      xkb_keysym_get_name(ignored[0], text, sizeof text);
    }
    throw Failure(
        plat::format("the keyboard has no key to spare for %zu of the symbols, first '%s'",
                     ignored.size(), text));
  }

 private:
  InputRecorder recorder_;
  Session session_;
};

void press(host::AgentConnection& agent, int x, int y, int button, int count) {
  for (int i = 0; i < count; ++i) {
    agent.pointerEvent(x, y, maskOf(button));
    agent.pointerEvent(x, y, 0);
  }
}

// The keysym of a name, a character or a number. Throws Failure.
uint32_t keysymOf(const std::string& name) {
  const uint32_t keysym = xkb_keysym_from_name(name.c_str(), XKB_KEYSYM_NO_FLAGS);
  if (keysym != XKB_KEY_NoSymbol) return keysym;
  if (plat::isValidUtf8(name)) {
    const std::vector<uint32_t> points = codePoints(name);
    if (points.size() == 1) return keysymOfCharacter(points[0]);
  }
  char* end = nullptr;
  const unsigned long number = std::strtoul(name.c_str(), &end, 0);
  if (!name.empty() && *end == '\0' && number <= UINT32_MAX) return static_cast<uint32_t>(number);
  throw Failure("'" + name + "' is no key symbol");
}

void typeText(const SessionOptions& options, const std::string& text, int delayMs) {
  std::vector<uint32_t> keysyms;
  for (const uint32_t point : codePoints(text)) keysyms.push_back(keysymOfCharacter(point));
  InputSession session(options);
  for (const uint32_t keysym : keysyms) {
    session.agent().keyEvent(keysym, true);
    session.agent().keyEvent(keysym, false);
    if (delayMs > 0) session.pause(delayMs);
  }
  session.finish();
}

void pressKeys(const SessionOptions& options, const std::vector<std::string>& combinations) {
  std::vector<std::vector<uint32_t>> all;
  for (const std::string& combination : combinations) {
    std::vector<uint32_t>& keysyms = all.emplace_back();
    // "+" itself is a key when nothing stands before or after it.
    for (size_t begin = 0; begin <= combination.size();) {
      const size_t end = std::min(combination.find('+', begin + 1), combination.size());
      const uint32_t keysym = keysymOf(combination.substr(begin, end - begin));
      // A viewer's keyboard makes capitals of what is pressed with Shift.
      const bool shift = std::any_of(keysyms.begin(), keysyms.end(), [](uint32_t held) {
        return held == XKB_KEY_Shift_L || held == XKB_KEY_Shift_R;
      });
      keysyms.push_back(shift ? xkb_keysym_to_upper(keysym) : keysym);
      begin = end + 1;
    }
  }
  InputSession session(options);
  for (const std::vector<uint32_t>& keysyms : all) {
    for (auto keysym = keysyms.begin(); keysym != keysyms.end(); ++keysym) {
      session.agent().keyEvent(*keysym, true);
    }
    for (auto keysym = keysyms.rbegin(); keysym != keysyms.rend(); ++keysym) {
      session.agent().keyEvent(*keysym, false);
    }
  }
  session.finish();
}

void movePointer(const SessionOptions& options, const PointerOptions& pointer) {
  InputSession session(options);
  session.agent().pointerEvent(pointer.x, pointer.y, 0);
  session.finish();
}

void click(const SessionOptions& options, const PointerOptions& pointer) {
  InputSession session(options);
  session.agent().pointerEvent(pointer.x, pointer.y, 0);
  press(session.agent(), pointer.x, pointer.y, pointer.button, pointer.count);
  session.finish();
}

void drag(const SessionOptions& options, const PointerOptions& pointer) {
  InputSession session(options);
  session.agent().pointerEvent(pointer.fromX, pointer.fromY, 0);
  for (int step = 0; step <= kDragSteps; ++step) {
    session.agent().pointerEvent(pointer.fromX + (pointer.x - pointer.fromX) * step / kDragSteps,
                                 pointer.fromY + (pointer.y - pointer.fromY) * step / kDragSteps,
                                 maskOf(pointer.button));
    session.pause(10);
  }
  session.agent().pointerEvent(pointer.x, pointer.y, 0);
  session.finish();
}

void wheel(const SessionOptions& options, const PointerOptions& pointer) {
  InputSession session(options);
  session.agent().pointerEvent(pointer.x, pointer.y, 0);
  press(session.agent(), pointer.x, pointer.y, pointer.count > 0 ? kWheelUp : kWheelDown,
        std::abs(pointer.count));
  session.finish();
}

}  // namespace

void addInputCommands(CLI::App& app, SessionOptions& session) {
  struct TypeOptions {
    std::string text;
    int delayMs = 0;
  };
  auto type = std::make_shared<TypeOptions>();
  CLI::App* command = app.add_subcommand("type", "Types text into the window with the focus");
  command->add_option("text", type->text, "UTF-8 text")->required();
  command->add_option("--delay", type->delayMs, "Milliseconds after each character")
      ->check(CLI::Range(0, 60000));
  command->callback([&session, type] { typeText(session, type->text, type->delayMs); });

  auto keys = std::make_shared<std::vector<std::string>>();
  command = app.add_subcommand("key", "Presses keys, such as Control_L+Shift_L+t");
  command->add_option("keys", *keys, "Key symbols, + between those that are held together")
      ->required();
  command->callback([&session, keys] { pressKeys(session, *keys); });

  auto pointer = std::make_shared<PointerOptions>();
  CLI::App* move = app.add_subcommand("move", "Moves the pointer");
  CLI::App* clicks = app.add_subcommand("click", "Clicks at a position");
  CLI::App* drags = app.add_subcommand("drag", "Drags with a button held");
  CLI::App* wheels = app.add_subcommand("wheel", "Turns the wheel at a position");
  drags->add_option("from_x", pointer->fromX)->required();
  drags->add_option("from_y", pointer->fromY)->required();
  for (CLI::App* each : {move, clicks, drags, wheels}) {
    each->add_option("x", pointer->x)->required();
    each->add_option("y", pointer->y)->required();
  }
  for (CLI::App* each : {clicks, drags}) {
    each->add_option("button", pointer->button, "Logical button, 1 to 32")
        ->check(CLI::Range(1, 32))
        ->capture_default_str();
  }
  clicks->add_option("--count", pointer->count, "How often")->check(CLI::Range(1, 100));
  wheels->add_option("steps", pointer->count, "Steps: up when positive, down when negative")
      ->required()
      ->check(CLI::Range(-1000, 1000));
  move->callback([&session, pointer] { movePointer(session, *pointer); });
  clicks->callback([&session, pointer] { click(session, *pointer); });
  drags->callback([&session, pointer] { drag(session, *pointer); });
  wheels->callback([&session, pointer] { wheel(session, *pointer); });
}

}  // namespace drive
