#include <algorithm>
#include <climits>
#include <cstdlib>
#include <memory>
#include <vector>

#include "Commands.h"
#include "Keysyms.h"
#include "Terminal.h"
#include "plat/Exception.h"

namespace drive {

namespace {

struct PointerOptions {
  int x = 0, y = 0;  // where to
  int fromX = 0, fromY = 0;
  int button = 1;
  int count = 1;
};

struct KeyOptions {
  std::vector<std::string> combinations;
  int delayMs = 0;
};

constexpr int kMaxButton = 8;
constexpr int kWheelUp = 4, kWheelDown = 5;
constexpr int kDragSteps = 16;
// Without a word from an agent that types.
constexpr int kTypingTimeoutMs = 60000;

uint32_t maskOf(int button) {
  return 1u << (button - 1);
}

// An agent that gets input and nothing else.
class InputSession {
 public:
  explicit InputSession(const SessionOptions& options) : session_(options, seen_) {}

  host::AgentConnection& agent() { return session_.agent(); }
  void pause(int ms) { session_.pause(ms); }
  // Throws Failure if something did not reach the desktop.
  void finish() {
    using Kind = host::Refusal::Kind;
    waitForInput();
    session_.finish();
    if (const host::Refusal* refused = seen_.refusal(Kind::kInput)) {
      throw session_.refusal(refused->text);
    }
    const host::Refusal* first = seen_.refusal(Kind::kKeySymbol);
    if (!first) return;
    const auto count =
        std::count_if(seen_.refusals.begin(), seen_.refusals.end(),
                      [](const host::Refusal& r) { return r.kind == Kind::kKeySymbol; });
    throw session_.refusal(
        plat::format("the keyboard has no key to spare for %d of the symbols, first '%s'",
                     static_cast<int>(count), keysymText(first->keysym).c_str()));
  }

 private:
  // Symbols that are new to the keyboard wait for other programs to see it change, and what comes
  // behind them waits too. An agent that is left drops all that.
  void waitForInput() {
    // Unknown to the agent: the answer comes when all before it has been read.
    agent().channel().writeMsg("sync");
    agent().channel().endMsg();
    session_.waitUntil([&] { return seen_.count("badMsg") > 0; }, kTypingTimeoutMs, "the agent");
    for (int lines = -1; seen_.isInputWaiting && lines != seen_.count("logMsg");) {
      lines = seen_.count("logMsg");
      session_.run(kTypingTimeoutMs / 1000.0,
                   [&] { return !seen_.isInputWaiting || seen_.count("logMsg") != lines; });
    }
  }

  host::Transcript seen_{host::Transcript::Keep::kLast};
  Session session_;
};

void press(host::AgentConnection& agent, int x, int y, int button, int count) {
  for (int i = 0; i < count; ++i) {
    agent.pointerEvent(x, y, maskOf(button));
    agent.pointerEvent(x, y, 0);
  }
}

void typeText(const SessionOptions& options, const std::string& text, int delayMs) {
  const std::vector<uint32_t> keysyms = keysymsOfText(text);
  InputSession session(options);
  for (const uint32_t keysym : keysyms) {
    session.agent().keyEvent(keysym, true);
    session.agent().keyEvent(keysym, false);
    if (delayMs > 0) session.pause(delayMs);
  }
  session.finish();
}

void pressKeys(const SessionOptions& options, const KeyOptions& keys) {
  std::vector<std::vector<uint32_t>> all;
  for (const std::string& text : keys.combinations) all.push_back(keysymsOfCombination(text));
  InputSession session(options);
  for (const std::vector<uint32_t>& keysyms : all) {
    for (auto keysym = keysyms.begin(); keysym != keysyms.end(); ++keysym) {
      session.agent().keyEvent(*keysym, true);
    }
    for (auto keysym = keysyms.rbegin(); keysym != keysyms.rend(); ++keysym) {
      session.agent().keyEvent(*keysym, false);
    }
    if (keys.delayMs > 0) session.pause(keys.delayMs);
  }
  session.finish();
}

// Agents press the buttons that mice have.
void checkButton(int button) {
  if (button > kMaxButton) {
    throw Failure(plat::format("button %d: agents press buttons 1 to %d", button, kMaxButton));
  }
}

void movePointer(const SessionOptions& options, const PointerOptions& pointer) {
  InputSession session(options);
  session.agent().pointerEvent(pointer.x, pointer.y, 0);
  session.finish();
}

void click(const SessionOptions& options, const PointerOptions& pointer) {
  checkButton(pointer.button);
  InputSession session(options);
  session.agent().pointerEvent(pointer.x, pointer.y, 0);
  press(session.agent(), pointer.x, pointer.y, pointer.button, pointer.count);
  session.finish();
}

void drag(const SessionOptions& options, const PointerOptions& pointer) {
  checkButton(pointer.button);
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
    std::string file;
    int delayMs = 0;
  };
  auto type = std::make_shared<TypeOptions>();
  CLI::App* command = app.add_subcommand("type", "Types text into the window with the focus");
  CLI::Option* text = command->add_option("text", type->text, "UTF-8 text; - reads standard input");
  command->add_option("--file", type->file, "File with the text")
      ->excludes(text)
      ->type_name("FILE");
  command->add_option("--delay", type->delayMs, "Milliseconds after each character")
      ->check(CLI::Range(0, 60000));
  setExamples(*command, "type 'Grüße, world'", "type --delay 30 --file letter.txt");
  command->callback([&session, type, text] {
    if (!*text && type->file.empty()) throw CLI::RequiredError("text");
    const bool isFile = !type->file.empty() || type->text == "-";
    typeText(session, isFile ? readAll(type->file.empty() ? "-" : type->file) : type->text,
             type->delayMs);
  });

  auto keys = std::make_shared<KeyOptions>();
  command = app.add_subcommand("key", "Presses keys, such as ctrl+c or super+l");
  command
      ->add_option("keys", keys->combinations,
                   "Keys by common name, X key symbol or character; + between those held together")
      ->required();
  command->add_option("--delay", keys->delayMs, "Milliseconds after each combination")
      ->check(CLI::Range(0, 60000));
  setExamples(*command, "key ctrl+shift+t", "key --delay 200 Tab Tab enter");
  command->callback([&session, keys] { pressKeys(session, *keys); });

  auto pointer = std::make_shared<PointerOptions>();
  CLI::App* move = app.add_subcommand("move", "Moves the pointer");
  CLI::App* clicks = app.add_subcommand("click", "Clicks at a position");
  CLI::App* drags = app.add_subcommand("drag", "Drags with a button held");
  CLI::App* wheels = app.add_subcommand("wheel", "Turns the wheel at a position");
  drags->add_option("from_x", pointer->fromX, "Where the button goes down")->required();
  drags->add_option("from_y", pointer->fromY, "Where the button goes down")->required();
  for (CLI::App* each : {move, clicks, drags, wheels}) {
    each->group("Use the pointer");
    each->add_option("x", pointer->x, "Pixels from the left")->required();
    each->add_option("y", pointer->y, "Pixels from the top")->required();
  }
  for (CLI::App* each : {clicks, drags}) {
    each->add_option("button", pointer->button, "Logical button, 1 to 8")
        ->check(CLI::Range(1, INT_MAX))
        ->capture_default_str();
  }
  clicks->add_option("--count", pointer->count, "How often")->check(CLI::Range(1, 100));
  wheels->add_option("steps", pointer->count, "Steps: up when positive, down when negative")
      ->required()
      ->check(CLI::Range(-1000, 1000));
  setExamples(*move, "move 100 200", "move 0 0 -- shot --cursor corner.png");
  setExamples(*clicks, "click 100 200", "click 100 200 1 --count 2");
  setExamples(*drags, "drag 10 10 200 150", "drag 10 10 200 150 2");
  setExamples(*wheels, "wheel 100 200 3", "wheel 100 200 -3");
  move->callback([&session, pointer] { movePointer(session, *pointer); });
  clicks->callback([&session, pointer] { click(session, *pointer); });
  drags->callback([&session, pointer] { drag(session, *pointer); });
  wheels->callback([&session, pointer] { wheel(session, *pointer); });
}

}  // namespace drive
