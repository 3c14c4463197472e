#pragma once

#include "x11/TXFixture.h"

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "io/FdManager.h"
#include "plat/Time.h"
#include "tx/TXClipboardMgr.h"
#include "x11/FakeOwner.h"

struct ClipboardRecorder : tx::TXClipboardWindow::Callback {
  bool sendPrimary() override { return primary; }
  void clipboardChanged(size_t length, const char* text) override {
    EXPECT_EQ(text[length], '\0');
    texts.emplace_back(text, length);
  }
  void requestDone(bool gotText, bool timedOut) override {
    done += gotText ? "got " : timedOut ? "timeout " : "nothing ";
  }
  bool primary = true;
  std::vector<std::string> texts;
  std::string done;
};

// Real time and what the test adds to it.
class MovedClock : public plat::ClockReader {
 public:
  MovedClock() : former_(plat::setClockReader(this)) {}
  ~MovedClock() override { plat::setClockReader(former_); }
  int64_t now() override { return clock_.now() + added_; }
  Reading read(int64_t earliestDue) override {
    return {clock_.read(earliestDue).now + added_, plat::TimeJump::kNone};
  }
  void advance(int ms) { added_ += ms * plat::kTicksPerMs; }

 private:
  plat::MonotonicClock clock_;
  int64_t added_ = 0;
  plat::ClockReader* former_;
};

class ClipboardFixture : public TXFixture {
 protected:
  ClipboardFixture() { io::FdManager::instance(); }
  void begin(int pollTimeMs = 0, const std::vector<std::string>& extra = {}) {
    if (!tx::TXDisplay::isOpen()) start("64x64x24", extra);
    manager_.emplace(&callback_, pollTimeMs);
    // The first check ends with the refusals of selections that nobody owns.
    ASSERT_TRUE(pumpUntil([this] { return !callback_.done.empty(); }));
    callback_.done.clear();
    manager_->setEnabled(true);
    dispatchAll();
    log_.clear();
  }
  void TearDown() override {
    manager_.reset();
    owner_.reset();
    TXFixture::TearDown();
  }

  FakeOwner& owner() {
    if (!owner_) owner_.emplace(server().display());
    return *owner_;
  }
  void pump() {
    dispatchAll();
    if (owner_) owner_->pump();
    io::FdManager::instance().process(0);
  }
  bool pumpUntil(const std::function<bool()>& predicate) {
    return support::waitFor([&] {
      pump();
      return predicate();
    });
  }
  // Until nothing happens any more.
  void settle() {
    for (int quiet = 0; quiet < 3; ++quiet) {
      pump();
      if (XPending(display()) > 0 || (owner_ && XPending(owner_->display()) > 0)) quiet = 0;
    }
  }
  // The next text reported.
  std::string nextText() {
    if (!pumpUntil([this] { return !callback_.texts.empty(); })) return "<none>\n" + log_.str();
    const std::string text = callback_.texts.front();
    callback_.texts.erase(callback_.texts.begin());
    return text;
  }
  std::string nextDone() {
    if (!pumpUntil([this] { return !callback_.done.empty(); })) return "<none>\n" + log_.str();
    return std::exchange(callback_.done, {});
  }
  // What another client reads, served by the toolkit meanwhile.
  std::string read(const std::vector<std::string>& command) {
    support::Program::Options options;
    options.captureOutput = true;
    options.captureErrors = true;
    auto program = server().start(command, options);
    EXPECT_TRUE(pumpUntil([&] { return !program->isRunning(); }));
    return program->output();
  }

  ClipboardRecorder callback_;
  std::optional<tx::TXClipboardMgr> manager_;
  std::optional<FakeOwner> owner_;
  MovedClock clock_;
};
