#include "x11/TXFixture.h"

#include "tx/TXEventHandler.h"

#include <functional>
#include <optional>
#include <string>

#include "tx/TXWindow.h"

namespace {

struct Handler : tx::TXEventHandler {
  explicit Handler(std::function<void()> action) : act(std::move(action)) {}
  void handleEvent(const XEvent&) override { act(); }
  const std::function<void()> act;
};

struct RecordingWindow : tx::TXWindow {
  explicit RecordingWindow(std::string* calls) : all(calls) {}
  void handleEvent(const XEvent&) override { *all += "W"; }
  std::string* const all;
};

using TXEventHandlerTest = TXFixture;

TEST_F(TXEventHandlerTest, AllHandlersInOrderThenTheWindowWithChangesMeanwhile) {
  start();
  setParam("_DebugEvents", "1");
  std::string calls;
  const RecordingWindow window(&calls);
  std::optional<Handler> a, b, c, d;
  a.emplace([&] { calls += "a"; });
  b.emplace([&] {
    calls += "b";
    if (calls != "abcWab") return;
    a.reset();
    c.reset();
    d.emplace([&] {
      calls += "d";
      b.reset();
    });
  });
  c.emplace([&] { calls += "c"; });
  XEvent event{};
  event.type = ClientMessage;
  event.xany.window = window.id();
  tx::TXEventHandler::dispatch(event);
  EXPECT_EQ(calls, "abcW");
  event.xany.window = 0x123;
  for (int i = 0; i < 3; ++i) tx::TXEventHandler::dispatch(event);
  EXPECT_EQ(calls,
            "abcWab"
            "bd"
            "d");
  EXPECT_EQ(log_.count("event ClientMessage window 0x123", 100, "TXWindow"), 3) << log_.str();
}

}  // namespace
