#include "svr/input/KeyGrafts.h"

#include <X11/Xatom.h>

#include <algorithm>

#include "plat/Time.h"
#include "plat/config/BoolParameter.h"
#include "plat/log/LogSrc.h"
#include "svr/input/CoreKeyRows.h"
#include "tx/Atoms.h"
#include "tx/ServerGrab.h"
#include "tx/TXDisplay.h"
#include "tx/XResources.h"
#include "tx/input/ClientPing.h"

namespace svr {
namespace {

plat::LogSrc vlog("SKeyboardX11");
plat::BoolParameter reuseGrafts("_ReuseGrafts", "", false);

// On the root window: keycode and keysym of each graft.
constexpr const char* kProperty = "_RUVO_KEY_GRAFTS";
constexpr long kMaxStored = 2 * 256;

// A client that is behind takes a keycode for what it carries when it gets to the press.
constexpr int64_t kRest = 200 * plat::kTicksPerMs;
// In a burst it is behind by the many changes of the map, too: toolkits read and compile all of it.
constexpr int64_t kRestInBurst = 500 * plat::kTicksPerMs;
// For one that is going to say when it has handled the keys.
constexpr int64_t kRestUnlessHandled = 3000 * plat::kTicksPerMs;
// What was pressed in one go rests until the last of it has rested.
constexpr int64_t kOneGo = 10 * plat::kTicksPerMs;

}  // namespace

KeyGrafts::KeyGrafts(KeyMapX11& map) : map_(map) {
  load();
}

void KeyGrafts::load() {
  Atom type;
  int format;
  unsigned long count, left;
  unsigned char* data = nullptr;
  if (XGetWindowProperty(tx::TXDisplay::display(), tx::TXDisplay::root(), tx::internAtom(kProperty),
                         0, kMaxStored, False, XA_CARDINAL, &type, &format, &count, &left,
                         &data) != Success) {
    return;
  }
  const tx::XMemory<unsigned char> memory(data);
  if (type != XA_CARDINAL || format != 32) return;
  const auto* const numbers = reinterpret_cast<const unsigned long*>(data);
  for (unsigned long i = 0; i + 1 < count; i += 2) {
    add(static_cast<int>(numbers[i] & 0xff), static_cast<uint32_t>(numbers[i + 1]));
  }
}

void KeyGrafts::save() const {
  std::vector<unsigned long> numbers;
  for (const Graft& graft : grafts_) {
    numbers.push_back(static_cast<unsigned long>(graft.keycode));
    numbers.push_back(graft.keysym);
  }
  XChangeProperty(tx::TXDisplay::display(), tx::TXDisplay::root(), tx::internAtom(kProperty),
                  XA_CARDINAL, 32, PropModeReplace,
                  reinterpret_cast<const unsigned char*>(numbers.data()),
                  static_cast<int>(numbers.size()));
}

void KeyGrafts::add(int keycode, uint32_t keysym) {
  std::erase_if(grafts_, [keycode](const Graft& g) { return g.keycode == keycode; });
  grafts_.push_back({keycode, keysym, plat::monotonicTime(), false});
}

void KeyGrafts::keySent(int keycode, bool down) {
  for (Graft& graft : grafts_) {
    if (graft.keycode != keycode) continue;
    graft.held = down;
    graft.lastUse = plat::monotonicTime();
  }
}

void KeyGrafts::forgetChanged(const CoreKeyRows& rows) {
  std::erase_if(grafts_,
                [&](const Graft& g) { return !rows.carriesOnly(g.keycode, KeySym{g.keysym}); });
}

std::vector<KeyGrafts::Graft> KeyGrafts::unheld() const {
  std::vector<Graft> grafts;
  std::copy_if(grafts_.begin(), grafts_.end(), std::back_inserter(grafts),
               [](const Graft& g) { return !g.held; });
  std::sort(grafts.begin(), grafts.end(),
            [](const Graft& a, const Graft& b) { return a.lastUse < b.lastUse; });
  return grafts;
}

int64_t KeyGrafts::restedAt(const Graft& graft, bool many) const {
  const auto& ping = tx::TXDisplay::part<tx::ClientPing>();
  if (graft.lastUse <= ping.handledUntil()) return graft.lastUse + kRest;
  if (ping.isHeard()) return graft.lastUse + kRestUnlessHandled;
  return graft.lastUse + (many ? kRestInBurst : kRest);
}

int KeyGrafts::msUntilRested(bool many) const {
  const std::vector<Graft> grafts = unheld();
  if (grafts.empty()) return 0;
  const int64_t now = plat::monotonicTime();
  if (std::any_of(grafts.begin(), grafts.end(),
                  [&](const Graft& g) { return restedAt(g, many) <= now; })) {
    return 0;
  }
  Graft last = grafts[0];
  for (const Graft& graft : grafts) {
    if (graft.lastUse - last.lastUse <= kOneGo) last = graft;
  }
  const int ms = static_cast<int>((restedAt(last, many) - now) / plat::kTicksPerMs) + 1;
  const bool isAsked = tx::TXDisplay::part<tx::ClientPing>().isAwaited();
  return isAsked ? std::min(ms, tx::ClientPing::kLookMs) : ms;
}

void KeyGrafts::askClient() {
  auto& ping = tx::TXDisplay::part<tx::ClientPing>();
  if (std::any_of(grafts_.begin(), grafts_.end(),
                  [&](const Graft& g) { return g.lastUse > ping.handledUntil(); })) {
    ping.send();
  }
}

KeyGrafts::Result KeyGrafts::graft(const std::vector<uint32_t>& keysyms, bool patient) {
  if (!reuseGrafts.value()) {
    if (fullRevision_ == map_.revision()) return {Outcome::kFull, 0};
    return graftNow(keysyms, patient);
  }
  const bool many = keysyms.size() > 1;
  if (fullRevision_ == map_.revision() && patient && msUntilRested(many) > 0) {
    // Asked first: the answer may be there before the rest is over.
    askClient();
    if (const int ms = msUntilRested(many); ms > 0) return {Outcome::kLater, ms};
  }
  const Result result = graftNow(keysyms, patient);
  if (fullRevision_ == map_.revision() && result.outcome != Outcome::kFull) askClient();
  return result;
}

KeyGrafts::Result KeyGrafts::graftNow(const std::vector<uint32_t>& keysyms, bool patient) {
  // Nobody changes the map between the look at it and the change.
  const tx::ServerGrab grab;
  map_.refresh();
  CoreKeyRows rows(map_.minKeycode(), map_.maxKeycode());
  forgetChanged(rows);
  std::vector<int> keycodes;
  for (int keycode = rows.maxKeycode(); keycode >= rows.minKeycode(); --keycode) {
    if (rows.isSpare(keycode)) keycodes.push_back(keycode);
  }
  const bool spareIsLeft = keycodes.size() > keysyms.size();
  const bool many = keysyms.size() > 1;
  if (reuseGrafts.value()) {
    const int64_t now = plat::monotonicTime();
    for (const Graft& graft : unheld()) {
      if (!patient || restedAt(graft, many) <= now) keycodes.push_back(graft.keycode);
    }
  }
  if (keycodes.empty()) {
    fullRevision_ = map_.revision();
    const int waitMs = reuseGrafts.value() ? msUntilRested(many) : 0;
    return {waitMs > 0 ? Outcome::kLater : Outcome::kFull, waitMs};
  }

  keycodes.resize(std::min(keycodes.size(), keysyms.size()));
  std::vector<KeyMapX11::Assignment> assignments;
  for (size_t i = 0; i < keycodes.size(); ++i) {
    vlog.info("Added unknown keysym 0x%x to keycode %d", keysyms[i], keycodes[i]);
    assignments.push_back({keycodes[i], keysyms[i]});
    add(keycodes[i], keysyms[i]);
  }
  map_.assign(assignments, rows);
  if (!spareIsLeft) fullRevision_ = map_.revision();
  save();
  return {Outcome::kGrafted, 0};
}

}  // namespace svr
