#include "svr/input/SKeyboardX11.h"

#include <X11/extensions/XTest.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "plat/Time.h"
#include "plat/log/LogSrc.h"
#include "tx/TXDisplay.h"
#include "tx/input/ClientPing.h"
#include "tx/input/XTestExtension.h"

namespace svr {

namespace {

plat::LogSrc vlog("SKeyboardX11");

// Time for releases to reach the X server before the connection may close.
constexpr useconds_t kReleaseDelayUs = 100 * 1000;

// From another key until one that is spelled, and while the client has not handled the former.
constexpr int64_t kRestBeforeSpelling = 60 * plat::kTicksPerMs;
constexpr int64_t kRestUnlessHandled = 1000 * plat::kTicksPerMs;

using Way = rfb::KeyEventInterpreter::Way;

}  // namespace

SKeyboardX11::SKeyboardX11() : trace_(InputTrace::get()), grafts_(map_), interpreter_(*this) {}

SKeyboardX11::~SKeyboardX11() {
  tx::TXDisplay::attempt([this] {
    interpreter_.releasePressedKeys();
    autoRepeat_.resume();
    XFlush(tx::TXDisplay::display());
    usleep(kReleaseDelayUs);
  });
}

bool SKeyboardX11::keyEvent(uint32_t keysym, bool down, bool atOnce) {
  if (!tx::TXDisplay::isOpen() || !tx::XTestExtension::present()) return true;
  if (down) {
    // A release needs no map: it is that of the key that was pressed.
    map_.follow();
    const Way way = interpreter_.wayTo(keysym);
    if (!atOnce && (way == Way::kGraft || (way == Way::kSpelling && restBeforeSpelling() > 0))) {
      return false;
    }
    if (way != Way::kSpelling) lastPlainPress_ = plat::monotonicTime();
    askedToSpell_ = false;
  }
  interpreter_.keyEvent(keysym, down);
  if (!interpreter_.hasPressedKeysyms()) autoRepeat_.resumeLater();
  return true;
}

std::optional<int> SKeyboardX11::timeToSpell(uint32_t keysym) {
  if (interpreter_.wayTo(keysym) != Way::kSpelling) return std::nullopt;
  auto& ping = tx::TXDisplay::part<tx::ClientPing>();
  if (ping.handledUntil() < lastPlainPress_) ping.send();
  askedToSpell_ = true;
  return restBeforeSpelling();
}

int SKeyboardX11::restBeforeSpelling() const {
  const int64_t rested = plat::monotonicTime() - lastPlainPress_;
  if (rested < kRestBeforeSpelling) {
    return static_cast<int>((kRestBeforeSpelling - rested - 1) / plat::kTicksPerMs) + 1;
  }
  if (!askedToSpell_ || rested >= kRestUnlessHandled) return 0;
  const auto& ping = tx::TXDisplay::part<tx::ClientPing>();
  return ping.isHeard() && ping.handledUntil() < lastPlainPress_ ? tx::ClientPing::kLookMs : 0;
}

KeyGrafts::Result SKeyboardX11::graftAll(std::span<const uint32_t> keysyms, bool patient) {
  if (!tx::TXDisplay::isOpen()) return {KeyGrafts::Outcome::kFull, 0};
  std::vector<uint32_t> wanted;
  for (const uint32_t keysym : keysyms) {
    if (interpreter_.wayTo(keysym) == Way::kGraft &&
        std::find(wanted.begin(), wanted.end(), keysym) == wanted.end()) {
      wanted.push_back(keysym);
    }
  }
  return grafts_.graft(wanted, patient);
}

void SKeyboardX11::releaseKeys() {
  if (!tx::TXDisplay::isOpen() || !interpreter_.hasPressedKeysyms()) return;
  interpreter_.releasePressedKeys();
  autoRepeat_.resumeLater();
}

std::optional<rfb::Keyboard::Key> SKeyboardX11::find(uint32_t keysym, int preferredLevel) {
  return map_.find(keysym, preferredLevel);
}

void SKeyboardX11::send(int keycode, bool down) {
  if (down) {
    trace_.keyPressed(keycode);
    // Under a key that is held auto-repeat must not come back.
    autoRepeat_.suspend();
  }
  XTestFakeKeyEvent(tx::TXDisplay::display(), static_cast<unsigned>(keycode), down, CurrentTime);
  map_.keySent(keycode, down);
  grafts_.keySent(keycode, down);
}

std::optional<int> SKeyboardX11::graft(uint32_t keysym) {
  if (grafts_.graft({keysym}, false).outcome == KeyGrafts::Outcome::kGrafted) {
    if (const std::optional<Key> key = map_.find(keysym, 0)) return key->keycode;
  }
  vlog.info("Keyboard mapping full - ignoring unknown keysym 0x%x", keysym);
  return std::nullopt;
}

}  // namespace svr
