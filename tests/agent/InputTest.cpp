#include "agent/Agent.h"

#include <X11/XKBlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

#include <atomic>
#include <csignal>
#include <thread>

#include "support/InputWitness.h"

namespace {

using support::InputWitness;

class InputTest : public testing::Test {
 protected:
  void SetUp() override { begin({}); }
  void begin(const std::vector<std::string>& extra) {
    server = support::XServer::xvfb("200x100x24", extra);
    load("us");
    client = server->connect();
  }
  void load(const std::string& layout) {
    server->run({"setxkbmap", "-option", "", "-layout", layout});
  }
  static void tap(Agent& agent, uint32_t keysym) {
    agent.connection->keyEvent(keysym, true);
    agent.connection->keyEvent(keysym, false);
  }
  // Until nothing waits for new symbols any more.
  static void settle(Agent& agent) {
    agent.sync();
    ASSERT_TRUE(agent.waitFor(
        [&] {
          const auto last = std::find_if(
              agent.seen.log.rbegin(), agent.seen.log.rend(),
              [](const host::LogLine& line) { return line.text.starts_with("Input "); });
          return last == agent.seen.log.rend() || last->text == "Input goes on";
        },
        30000));
  }
  // Until something outside the channel is so.
  static bool eventually(Agent& agent, const std::function<bool()>& predicate) {
    return support::waitFor([&] {
      if (agent.connection) agent.connection->process(1);
      return predicate();
    });
  }
  // What is down at the X server: keycodes, buttons.
  std::vector<unsigned> held() {
    char keys[32];
    XQueryKeymap(client.get(), keys);
    std::vector<unsigned> all;
    for (unsigned i = 0; i < 256; ++i) {
      if (keys[i / 8] >> i % 8 & 1) all.push_back(i);
    }
    Window root, child;
    int x, y;
    unsigned state;
    XQueryPointer(client.get(), DefaultRootWindow(client.get()), &root, &child, &x, &y, &x, &y,
                  &state);
    for (unsigned button = 1; button <= 5; ++button) {
      if (state >> (button + 7) & 1) all.push_back(button);
    }
    return all;
  }

  std::unique_ptr<support::XServer> server;
  support::XConnection client;
};

TEST_F(InputTest, EveryKeyArrivesInOrder) {
  InputWitness witness(server->display());
  Agent agent(server->display());
  std::string expected;
  const std::string alphabet = "abcXYZ019 .,@{";
  for (int i = 0; i < 5000; ++i) {
    const char c = alphabet[static_cast<size_t>(i * i % 101) % alphabet.size()];
    expected += c;
    tap(agent, static_cast<uint8_t>(c));
  }
  agent.sync();
  EXPECT_EQ(witness.waitForText(expected.size()), expected);
  EXPECT_EQ(held(), std::vector<unsigned>{});
}

TEST_F(InputTest, LayoutsThatAreSwitchedWhileItTypes) {
  InputWitness witness(server->display());
  Agent agent(server->display());
  agent.sync();
  // Key by key, each for the group that has just been switched to.
  load("us,ru");
  for (unsigned i = 0; i < 40; ++i) {
    const unsigned group = i / 2 % 2;
    XkbLockGroup(client.get(), XkbUseCoreKbd, group);
    XSync(client.get(), False);
    XSync(client.get(), False);
    const uint32_t keysym = i % 4 < 2 ? 'a' + i % 20 : XK_Cyrillic_a + i % 20;
    tap(agent, keysym);
    agent.connection->process(0);
    const std::vector<std::string> events = witness.waitForEvents(2);
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0],
              "+" + std::string(XKeysymToString(keysym)) + events[0].substr(events[0].find(' ')));
    // Where it belongs, not on a spare key.
    EXPECT_LT(std::stoi(events[0].substr(events[0].find(' '))), 62) << events[0];
  }
  EXPECT_FALSE(agent.seen.hasLog("Added unknown")) << agent.seen.logText();

  // The map changes again and again under a stream of keys: nobody can say what each becomes, but
  // at the end all is well.
  const uint32_t keysyms[] = {'y', 'Z', '@', 0x20ac, XK_Cyrillic_a, 0x101f600, 'z'};
  std::atomic<bool> over = false;
  std::thread storm([&] {
    for (int i = 0; i < 20; ++i) load(i % 2 ? "us" : "de");
    over = true;
  });
  for (int i = 0; i < 100; ++i) {
    for (const uint32_t keysym : keysyms) tap(agent, keysym);
    agent.connection->process(1);
  }
  while (!over) agent.connection->process(1);
  storm.join();
  settle(agent);
  agent.sync();
  while (!witness.take().empty()) {
  }
  EXPECT_EQ(held(), std::vector<unsigned>{});
  for (const uint32_t keysym : keysyms) tap(agent, keysym);
  const std::string text = "yZ@€а😀z";
  EXPECT_EQ(witness.waitForText(text.size()), text);
}

TEST_F(InputTest, TellsWhereThePointerIs) {
  Agent agent(server->display(), {{"PollCursorTime", "20"}});
  agent.start();
  agent.seen.cursorPositions.clear();
  const int localInputs = agent.seen.count("localInput");
  const auto seenAt = [&](int x, int y) {
    return agent.waitFor([&] {
      return !agent.seen.cursorPositions.empty() &&
             agent.seen.cursorPositions.back() == rfb::Point(x, y);
    });
  };
  agent.connection->pointerEvent(30, 40, 0);
  EXPECT_TRUE(seenAt(30, 40));
  EXPECT_EQ(agent.seen.count("localInput"), localInputs) << "its own motion";
  XTestFakeMotionEvent(client.get(), 0, 50, 60, 0);
  XSync(client.get(), False);
  EXPECT_TRUE(seenAt(50, 60));
  EXPECT_EQ(agent.seen.count("localInput"), localInputs + 1);

  agent.connection->stop();
  agent.sync();
  agent.seen.cursorPositions.clear();
  agent.connection->pointerEvent(1, 1, 1);  // is injected all the same
  EXPECT_TRUE(eventually(agent, [&] { return held() == std::vector<unsigned>{1}; }));
  agent.sync();
  EXPECT_TRUE(agent.seen.cursorPositions.empty());
}

TEST_F(InputTest, Commands) {
  InputWitness witness(server->display());
  // What becomes of a command: what it says, its status, and what another client gets.
  const auto run = [&](std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), RUVO_DRIVE);
    support::Program::Options options;
    options.captureErrors = true;
    options.environment["HOME"] = "/nonexistent";
    const auto program = server->start(arguments, options);
    std::string all = std::to_string(program->wait().value_or(-1)) + program->errors();
    for (const std::string& event : witness.take()) all += "; " + event;
    return all;
  };
  EXPECT_EQ(run({"key", "Control_L+Shift_L+t"}),
            "0; +Control_L 37; +Shift_L 50 C; +T 28 SC; -T 28 SC; -Shift_L 50 SC; -Control_L 37 C");
  EXPECT_EQ(run({"key", "nonsense"}), "1ruvodrive: 'nonsense' is no key symbol\n");
  EXPECT_EQ(run({"click", "9", "8", "3"}), "0; 9,8; +3; -3");
  run({"type", "Gr\u00fc\u00dfe, 5 \u20ac"});
  EXPECT_EQ(witness.text(), "Gr\u00fc\u00dfe, 5 \u20ac");
  // More than there are keys for.
  std::string many;
  for (char c = '\x90'; c < '\xc0'; ++c) many += std::string("\xd0") + c;
  const auto typing = server->start({RUVO_DRIVE, "type", many});
  EXPECT_EQ(witness.waitForText(many.size()), many);
  EXPECT_EQ(typing->wait(), 0);
  witness.take();
  EXPECT_EQ(run({"--param", "_ReuseGrafts=0", "type", "\u2660"}),
            "1ruvodrive: the keyboard has no key to spare for 1 of the symbols, first '\u2660' "
            "(display " +
                server->display() + ")\n");
}

TEST_F(InputTest, WithoutXTestInputIsDropped) {
  client.reset();
  begin({"-extension", "XTEST"});
  Agent agent(server->display());
  agent.start();
  EXPECT_TRUE(agent.seen.hasLog("XTest extension not present - unable to inject events", 30));
  agent.seen.log.clear();
  tap(agent, 0x101f600);
  agent.connection->keyEvent('a', true);
  agent.connection->pointerEvent(1, 1, 7);
  agent.sync();
  agent.sync();
  EXPECT_EQ(held(), std::vector<unsigned>{});
  for (const host::LogLine& line : agent.seen.log) {
    EXPECT_EQ(line.source.find("Key"), std::string::npos) << line.text;
  }
  agent.signal(SIGTERM);
  EXPECT_EQ(agent.exitStatus(), 0);
}

}  // namespace
