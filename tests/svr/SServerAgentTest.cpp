#include "svr/SServerAgent.h"

#include <gtest/gtest.h>

#include "io/FdIo.h"
#include "io/FdSelectManager.h"
#include "plat/Exception.h"
#include "plat/config/BoolParameter.h"
#include "plat/config/IntParameter.h"
#include "plat/config/ParameterChangedCallback.h"
#include "rfb/CursorWithAlpha.h"
#include "rfb/UpdateTracker.h"
#include "support/Frames.h"
#include "support/LogCapture.h"
#include "support/ParameterValue.h"
#include "support/SocketPair.h"
#include "svr/FakeBuffer.h"
#include "svr/SDesktop.h"

namespace {

using support::longString;
using support::shortString;
using support::u32;
using Messages = std::vector<support::Message>;
using Calls = std::vector<std::string>;

const rfb::PixelFormat kFormat888(32, 24, false, true, 255, 255, 255, 16, 8, 0);
// 32 bits, depth 24, little-endian, true colour, 255 each, no alpha, shifts 16, 8, 0.
const std::string kFormat888Bytes("\x20\x18\0\x01\0\xFF\0\xFF\0\xFF\0\0\x10\x08\0\0", 16);

std::string rectBytes(int x1, int y1, int x2, int y2) {
  std::string bytes;
  for (const int v : {x1, y1, x2, y2}) bytes += u32(static_cast<uint32_t>(v));
  return bytes;
}

// A segment that nobody can map.
class FakeMemory : public plat::SharedMem {
 public:
  explicit FakeMemory(int32_t segmentId) : SharedMem(4096), id_(segmentId) {}

  plat::SharedMemDescriptor descriptor() const override {
    return {plat::SharedMemDescriptor::Kind::kSysV, size(), {}, false, 0, id_};
  }

 private:
  int32_t id_;
};

class FakeDesktop : public svr::SDesktop {
 public:
  void keyEvent(uint32_t keysym, bool down) override {
    calls.push_back(plat::format("key %x %d", keysym, down));
  }
  void pointerEvent(const rfb::Point& p, uint32_t mask, bool relative) override {
    calls.push_back(plat::format("pointer %d,%d %x %d", p.x, p.y, mask, relative));
  }
  void start(svr::SServer&) override { calls.push_back("start"); }
  void stop() override { calls.push_back("stop"); }
  void framebufferUpdateRequest() override { calls.push_back("request"); }
  void releaseInput() override { calls.push_back("release"); }
  rfb::Rect getRect() override { return rfb::Rect(0, 0, 640, 480); }

  Calls take() { return std::exchange(calls, {}); }

  Calls calls;
};

class SServerAgentTest : public testing::Test, protected svr::SServerAgent::Callback {
 protected:
  SServerAgentTest() {
    agent.accept(std::make_unique<io::FdIo>(std::move(pair.ours)));
    receive();
  }
  void desktopStarted(bool started) override {
    desktop.calls.push_back(started ? "started" : "stopped");
  }
  void clientCutText(std::string_view text) override {
    desktop.calls.push_back(plat::format("text of %zu", text.size()));
  }
  void serverDisconnected() override {}

  // Sends a message and lets the agent handle it.
  void send(std::string_view name, std::string_view body = {}) {
    pair.put(support::message(name, body));
    while (loop.process(0)) {
    }
  }
  // All messages that the agent has sent since the last call.
  Messages receive() {
    std::string bytes = pair.take();
    return support::takeMessages(bytes);
  }

  // What a published buffer looks like on the wire; segment: the id of a new one.
  static support::Message published(const rfb::Rect& r, uint32_t stride, int segment = -1) {
    return {"setPixelBuffer",
            kFormat888Bytes + rectBytes(r.tl.x, r.tl.y, r.br.x, r.br.y) + u32(stride) +
                (segment < 0 ? std::string(1, '\0')
                             : "\x01\x01" + u32(4096) + u32(static_cast<uint32_t>(segment)))};
  }

  support::LogCapture log{200};
  FakeDesktop desktop;
  support::SocketPair pair;
  io::FdSelectManager loop;
  svr::SServerAgent agent{this, &desktop, nullptr};
};

TEST_F(SServerAgentTest, HandsMessagesToTheDesktop) {
  const struct {
    std::string name, body;
    Calls calls;
  } cases[] = {
      {"stop", "", {"release"}},
      {"fbUpdateRequest", "", {"request"}},
      {"start", "", {"start", "started"}},
      {"start", "", {"stop", "stopped", "start", "started"}},
      {"fbUpdateRequest", "", {"request"}},
      {"keyEvent", u32(0xFF0D) + '\x01', {"key ff0d 1"}},
      {"pointerEvent",
       u32(10) + u32(static_cast<uint32_t>(-3)) + u32(0x80000001) + '\x07',
       {"pointer 10,-3 80000001 1"}},
      {"stop", "", {"stop", "stopped"}},
      {"stop", "", {"release"}},
      {"fbUpdateRequest", "", {"request"}},  // stopping has forgotten the one before
  };
  for (const auto& c : cases) {
    send(c.name, c.body);
    EXPECT_EQ(desktop.take(), c.calls) << c.name;
  }
}

// The size of texts and images is the choice of X clients, and so is their number.
TEST_F(SServerAgentTest, HoldsTheLatestTextAndCursorBackFromABlockedChannel) {
  const std::string large(1000000, 'x');
  agent.serverCutText(large.data(), large.size());
  for (int width = 1; width <= 3; ++width) {
    rfb::CursorWithAlpha cursor(rfb::Cursor::alphaFormat(), width, 1, rfb::Point());
    agent.setCursor(&cursor);
    agent.serverCutText("abc", static_cast<size_t>(width));
    agent.bell();
  }
  std::string bytes;
  do {
    bytes += pair.take();
  } while (loop.process(0));
  Messages messages = support::takeMessages(bytes);
  ASSERT_EQ(messages.size(), 6u);
  EXPECT_EQ(messages[0].body.size(), 4 + large.size());
  for (int i = 1; i <= 3; ++i) EXPECT_EQ(messages[i].name, "bell");
  EXPECT_EQ(messages[4], (support::Message{"serverCutText", longString("abc")}));
  EXPECT_EQ(messages[5].name, "setCursorImage");
  EXPECT_EQ(messages[5].body.substr(17, 16), rectBytes(0, 0, 3, 1));
}

TEST_F(SServerAgentTest, DropsTextsThatNobodyCanPaste) {
  const size_t most = 32 * 1024 * 1024;
  for (const size_t length : {most, most + 1}) {
    std::vector<size_t> cuts;
    for (size_t at = 32000; at < length; at += 32000) cuts.push_back(at);
    const std::string bytes =
        support::message("clientCutText", longString(std::string(length, 'a')), cuts);
    for (size_t sent = 0; sent < bytes.size(); loop.process(0)) {
      const ssize_t n = pair.put(std::string_view(bytes).substr(sent, 100000));
      sent += static_cast<size_t>(std::max<ssize_t>(n, 0));
    }
    send("keyEvent", u32('a') + '\x01');
  }
  EXPECT_EQ(desktop.take(), (Calls{"text of 33554432", "key 61 1", "key 61 1"}));
  EXPECT_EQ(log.count("Dropped a clipboard text of 33554433 bytes: longer than 33554432", 0), 1);
}

TEST_F(SServerAgentTest, PublishesWhatChanged) {
  const rfb::Rect rect(0, 0, 40, 30);
  FakeBuffer buffer(kFormat888, rect, nullptr, 48);
  buffer.memory = std::make_unique<FakeMemory>(7);
  agent.setPixelBuffer(&buffer);
  EXPECT_EQ(receive(), (Messages{published(rect, 48, 7)}));
  EXPECT_EQ(buffer.grabbed, std::vector<rfb::Region>{rect});
  agent.setPixelBuffer(&buffer);
  EXPECT_EQ(receive(), Messages{});

  const rfb::Rect smaller(0, 0, 20, 30);
  buffer.setRect(smaller);
  agent.setPixelBuffer(&buffer);
  EXPECT_EQ(receive(), (Messages{published(smaller, 48)}));

  agent.setPixelBuffer(nullptr);
}

TEST_F(SServerAgentTest, SendsColourMaps) {
  struct ThreeColours : rfb::ColourMap {
    void lookup(int index, int* r, int* g, int* b) const override {
      *r = index;
      *g = 10 * index;
      *b = 300 - index;  // its low byte is sent
    }
    int size() const override { return 3; }
  } map;
  FakeBuffer buffer(rfb::PixelFormat(8, 8, false, false), rfb::Rect(0, 0, 4, 4), &map);
  buffer.memory = std::make_unique<FakeMemory>(1);
  agent.setPixelBuffer(&buffer);
  EXPECT_EQ(receive().back(),
            (support::Message{"setColourMapEntries",
                              std::string("\0\x02\0\0\x2C\x01\x0A\x2B\x02\x14\x2A", 11)}));
  agent.setColourMapEntries(1, 0);
  EXPECT_EQ(
      receive(),
      (Messages{{"setColourMapEntries", std::string("\x01\x01\x01\x0A\x2B\x02\x14\x2A", 8)}}));
  agent.setPixelBuffer(nullptr);
}

TEST_F(SServerAgentTest, AnswersEachRequestOnce) {
  const support::ParameterValue debug("_AgentDebugUpdates", "1");
  FakeBuffer buffer(kFormat888, rfb::Rect(0, 0, 40, 30));
  buffer.memory = std::make_unique<FakeMemory>(1);
  agent.setPixelBuffer(&buffer);
  receive();
  buffer.grabbed.clear();
  log.clear();

  send("fbUpdateRequest");
  send("fbUpdateRequest");
  EXPECT_EQ(desktop.take(), Calls{"request"});
  rfb::UpdateInfo update;
  update.changed = rfb::Rect(1, 2, 3, 4);
  update.copied = rfb::Rect(10, 10, 20, 20);
  update.delta = rfb::Point(-1, 5);
  agent.writeUpdate(update);
  EXPECT_FALSE(agent.isUpdateRequested());
  EXPECT_EQ(
      receive(),
      (Messages{{"fbUpdate", std::string("\0\1\0\x0A\0\x0A\0\x14\0\x14", 10) + u32(0xFFFFFFFF) +
                                 u32(5) + std::string("\0\1\0\1\0\2\0\3\0\4", 10)}}));
  EXPECT_EQ(buffer.grabbed, std::vector<rfb::Region>{update.changed | update.copied});
  EXPECT_EQ(log.take(), (Calls{"100 SServerAgent: fbUpdateRequest, duplicate 0",
                               "100 SServerAgent: fbUpdateRequest, duplicate 1",
                               "100 SServerAgent: fbUpdate, empty 0", "100 SServerAgent: grabbed",
                               "100 SServerAgent: sent fbUpdate"}));
  agent.setPixelBuffer(nullptr);
}

TEST_F(SServerAgentTest, SendsTheRest) {
  rfb::CursorWithAlpha cursor(rfb::Cursor::alphaFormat(), 2, 1, rfb::Point(1, 0));
  const uint32_t argb[] = {0x80402010, 0xFF0000FF};
  cursor.setArgb(argb);
  cursor.setThreshold(64);
  agent.setCursor(&cursor);
  agent.setCursor(nullptr);
  agent.serverCutText("a\0b", 3);
  agent.closeClients(plat::SystemException("open", 2));
  agent.desktopFailure(plat::Exception("%s", "no kind"));
  const std::string format("\x20\x20\0\x01\0\xFF\0\xFF\0\xFF\0\xFF\x10\x08\0\x18", 16);
  EXPECT_EQ(
      receive(),
      (Messages{{"setCursorImage", "\x01" + format + rectBytes(-1, 0, 1, 1) + u32(64) + u32(8) +
                                       "\x10\x20\x40\x80\xFF" + std::string("\0\0\xFF", 3)},
                {"setCursorImage", std::string(1, '\0')},
                {"serverCutText", u32(3) + std::string("a\0b", 3)},
                {"closeClients", longString("open: No such file or directory (2)") +
                                     shortString("SystemException") + u32(2)},
                {"desktopFailure", shortString("no kind") + shortString("")}}));
}

TEST_F(SServerAgentTest, SetsParameters) {
  plat::IntParameter number("TestNumber", "a number", 5, 0, 100);
  plat::BoolParameter flag("TestFlag", "a switch", true);
  struct Listener : plat::ParameterChangedCallback {
    explicit Listener(plat::IntParameter& parameter) : number(parameter) {}
    void paramChanged(plat::ConfigParameter*, int) override { told = number.value(); }
    plat::IntParameter& number;
    int told = 5;
  } listener(number);
  number.addCallback(&listener);
  const auto entry = [](std::string_view name, std::string_view value, uint32_t priority) {
    return shortString(name) + longString(value) + u32(priority);
  };
  const auto numberEntry = [&](auto... rest) { return entry("testNUMBER", rest...); };
  const struct {
    std::string entries;
    int value;  // of the number
    Calls errors;
  } cases[] = {
      {entry("none", "1", 10) + numberEntry("7", 10),
       7,
       {"0 SServerAgent: Unknown parameter 'none'"}},
      // The last entry replaces all others, whatever their priorities.
      {numberEntry("30", 30) + numberEntry("8", 10), 8, {}},
      // The default is stated.
      {numberEntry("5", 0) + entry("TestFlag", "true", 0),
       5,
       {"0 SServerAgent: Bad default for parameter 'TestFlag': 'true' != '1'"}},
      // Values that are refused leave it, and the entries after them count.
      {numberEntry("9", 10) + numberEntry("101", 10), 5, {}},
      {numberEntry("11", 0x80000000),
       5,
       {"0 SServerAgent: Bad priority 2147483648 for parameter 'testNUMBER'"}},
      {numberEntry("6", 10) + shortString("TestFlag"), 6, {"0 FdIo: Server: End of message"}},
  };
  for (const auto& c : cases) {
    log.clear();
    send("setParams", c.entries);
    EXPECT_EQ(number.value(), c.value);
    EXPECT_EQ(listener.told, c.value);
    Calls lines = log.take();
    std::erase_if(lines, [](const std::string& line) { return line[0] != '0'; });
    EXPECT_EQ(lines, c.errors);
  }
  EXPECT_FALSE(number.hasValueAt(30));
}

}  // namespace
