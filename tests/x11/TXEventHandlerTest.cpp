#include "x11/TXFixture.h"

#include "tx/TXEventHandler.h"

#include <functional>
#include <optional>
#include <string>

#include "tx/TXWindow.h"

namespace {

template <typename Base>
struct Acting : Base {
  explicit Acting(std::function<void()> action) : act(std::move(action)) {}
  void handleEvent(const XEvent&) override { act(); }
  const std::function<void()> act;
};
using Handler = Acting<tx::TXEventHandler>;

using TXEventHandlerTest = TXFixture;

TEST_F(TXEventHandlerTest, AllHandlersInOrderThenTheWindowWithChangesMeanwhile) {
  start();
  setParam("_DebugEvents", "1");
  std::string calls;
  const Acting<tx::TXWindow> window([&] { calls += "W"; });
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
  EXPECT_EQ(calls.substr(6), "bdd");
  EXPECT_EQ(log_.count("event ClientMessage window 0x123", 100, "TXWindow"), 3) << log_.str();
}

}  // namespace
