#include "svr/input/KeyMapX11.h"

#include <X11/Xutil.h>

#include <algorithm>
#include <tuple>

#include "svr/input/CoreKeyRows.h"
#include "svr/input/QueuedEvents.h"
#include "tx/ErrorCatcher.h"
#include "tx/TXDisplay.h"

namespace svr {

namespace {

constexpr uint32_t kModeSwitch = 0xff7e;
constexpr uint32_t kNumLock = 0xff7f;
constexpr uint32_t kCapsLock = 0xffe5;
constexpr uint32_t kIsoLevel3Shift = 0xfe03;

constexpr int kLevels = 4;

// No letter or modifier is on a keycode from here on, in any layout.
constexpr int kFirstBeyondTyping = 109;

constexpr unsigned kMapParts = XkbKeyTypesMask | XkbKeySymsMask;
constexpr unsigned kXkbEvents = XkbNewKeyboardNotifyMask | XkbMapNotifyMask | XkbStateNotifyMask;

// What a key does with a group that it does not have.
constexpr unsigned kGroupRuleMask = 0xc0;
constexpr unsigned kClampGroup = 0x40;
constexpr unsigned kRedirectGroup = 0x80;

unsigned groupInRange(unsigned group, unsigned groupInfo, unsigned numGroups) {
  if (group < numGroups) return group;
  switch (groupInfo & kGroupRuleMask) {
    case kClampGroup:
      return numGroups - 1;
    case kRedirectGroup: {
      const unsigned target = (groupInfo & 0x30) >> 4;
      return target < numGroups ? target : 0;
    }
    default:
      return group % numGroups;
  }
}

// Whether an event was sent before the X server came to a request. Serial numbers wrap; no event
// waits so long that this matters.
bool isBefore(const XEvent& event, unsigned long request) {
  constexpr unsigned long kOldest = 1000000;
  const unsigned long age = request - event.xany.serial;
  return age > 0 && age < kOldest;
}

struct ModifierMapDeleter {
  void operator()(XModifierKeymap* map) const { XFreeModifiermap(map); }
};

}  // namespace

KeyMapX11::KeyMapX11() {
  XDisplayKeycodes(tx::TXDisplay::display(), &minKeycode_, &maxKeycode_);
  openXkb();
  indexSymbols();
  level3Present_ = find(kIsoLevel3Shift, 0).has_value();
  readModifiers();
}

void KeyMapX11::openXkb() {
  const tx::TXDisplay::Throwing throwing;
  Display* display = tx::TXDisplay::display();
  int opcode, error, major = XkbMajorVersion, minor = XkbMinorVersion;
  if (!XkbQueryExtension(display, &opcode, &xkbEventBase_, &error, &major, &minor)) {
    xkbEventBase_ = -1;
    return;
  }
  // Selected first, so that no change of the map goes unseen.
  XkbSelectEvents(display, XkbUseCoreKbd, kXkbEvents, kXkbEvents);
  xkbDesc_.reset(XkbGetMap(display, kMapParts, XkbUseCoreKbd));
  if (!xkbDesc_) return;
  XkbStateRec state{};
  XkbGetState(display, XkbUseCoreKbd, &state);
  xkbGroup_ = state.group;
  modState_ = state.mods;
}

// Following the keyboard

void KeyMapX11::handleEvent(const XEvent& event) {
  if (event.type == MappingNotify) {
    if (event.xmapping.request != MappingPointer && !isBefore(event, mapRequest_)) {
      coreMapChanged_ = true;
    }
    return;
  }
  if (!xkbDesc_ || event.type != xkbEventBase_) return;
  const auto& xkbEvent = reinterpret_cast<const XkbEvent&>(event);
  switch (xkbEvent.any.xkb_type) {
    case XkbNewKeyboardNotify:
    case XkbMapNotify:
      if (!isBefore(event, mapRequest_)) xkbMapChanged_ = true;
      break;
    case XkbStateNotify:
      groupChanged_ = groupChanged_ || xkbGroup_ != xkbEvent.state.group;
      xkbGroup_ = xkbEvent.state.group;
      // Lock keys that have been pressed here since are known already.
      if (!isBefore(event, lockKeyRequest_)) modState_ = xkbEvent.state.mods;
      break;
    default:
      break;
  }
}

void KeyMapX11::follow() {
  // A group or map that was switched before the viewer's key may have its event still in the queue.
  // What is seen now is seen again in its turn.
  showQueuedEvents(tx::TXDisplay::display(), [this](const XEvent& event) { handleEvent(event); });
  // One change of the map makes several events: it is read once for all of them.
  if (coreMapChanged_ || xkbMapChanged_) {
    readMap();
  } else if (groupChanged_) {
    indexSymbols();
  }
}

void KeyMapX11::refresh() {
  (xkbDesc_ ? xkbMapChanged_ : coreMapChanged_) = true;
  readMap();
}

void KeyMapX11::readMap() {
  Display* display = tx::TXDisplay::display();
  mapRequest_ = NextRequest(display);
  if (coreMapChanged_) {
    XMappingEvent mapping{};
    mapping.type = MappingNotify;
    mapping.display = display;
    mapping.first_keycode = minKeycode_;
    mapping.count = maxKeycode_ - minKeycode_ + 1;
    for (const int request : {MappingKeyboard, MappingModifier}) {
      mapping.request = request;
      XRefreshKeyboardMapping(&mapping);
    }
  }
  if (xkbMapChanged_) {
    // After a failure the former map is still there.
    XkbGetUpdatedMap(display, kMapParts, xkbDesc_.get());
    minKeycode_ = xkbDesc_->min_key_code;
    maxKeycode_ = xkbDesc_->max_key_code;
  }
  coreMapChanged_ = xkbMapChanged_ = false;
  ++revision_;
  indexSymbols();
  readModifiers();
}

void KeyMapX11::readModifiers() {
  const auto keycodeOf = [this](uint32_t keysym) {
    const auto key = find(keysym, 0);
    return key ? key->keycode : 0;
  };
  numLockKeycode_ = keycodeOf(kNumLock);
  capsLockKeycode_ = keycodeOf(kCapsLock);
  numLockMask_ = 0;
  const std::unique_ptr<XModifierKeymap, ModifierMapDeleter> map(
      XGetModifierMapping(tx::TXDisplay::display()));
  if (!map || numLockKeycode_ == 0) return;
  for (unsigned i = 0; i < 8 * static_cast<unsigned>(map->max_keypermod); ++i) {
    if (map->modifiermap[i] != numLockKeycode_) continue;
    numLockMask_ = 1u << i / static_cast<unsigned>(map->max_keypermod);
    return;
  }
}

// Changing the map

void KeyMapX11::assign(const std::vector<Assignment>& assignments, CoreKeyRows& rows) {
  if (xkbDesc_ && assignXkb(assignments)) {
    // What the X server reports of it is known.
    mapRequest_ = NextRequest(tx::TXDisplay::display());
    indexSymbols();
    return;
  }
  for (const Assignment& assignment : assignments) {
    rows.assign(assignment.keycode, assignment.keysym);
  }
  refresh();
}

bool KeyMapX11::assignXkb(const std::vector<Assignment>& assignments) {
  if (xkbDesc_->map->num_types < XkbNumRequiredTypes) return false;
  int first = maxKeycode_, last = minKeycode_;
  for (const Assignment& assignment : assignments) {
    // A letter with one level is taken for both of its cases.
    KeySym lower, upper;
    XConvertCase(assignment.keysym, &lower, &upper);
    const int levels = lower == upper ? 1 : 2;
    KeySym* const symbols = XkbResizeKeySyms(xkbDesc_.get(), assignment.keycode, levels);
    if (!symbols) return false;
    std::fill_n(symbols, levels, assignment.keysym);
    XkbSymMapRec& key = xkbDesc_->map->key_sym_map[assignment.keycode];
    key.kt_index[0] = levels == 1 ? XkbOneLevelIndex : XkbTwoLevelIndex;
    key.group_info = 1;
    key.width = static_cast<unsigned char>(levels);
    if (assignment.keycode < kFirstBeyondTyping) continue;
    first = std::min(first, assignment.keycode);
    last = std::max(last, assignment.keycode);
  }

  // A request takes a range of keys and gives it to all keyboards. One for all new symbols makes
  // one event, but further keyboards that have another layout must keep their letters.
  if (first <= last && !sendXkbRows(first, last)) return false;
  return std::all_of(assignments.begin(), assignments.end(), [this](const Assignment& a) {
    return a.keycode >= kFirstBeyondTyping || sendXkbRows(a.keycode, a.keycode);
  });
}

bool KeyMapX11::sendXkbRows(int first, int last) {
  XkbMapChangesRec changes{};
  changes.changed = XkbKeySymsMask;
  changes.first_key_sym = static_cast<KeyCode>(first);
  changes.num_key_syms = static_cast<unsigned char>(last - first + 1);
  tx::ErrorCatcher trap;
  return XkbChangeMap(tx::TXDisplay::display(), xkbDesc_.get(), &changes) && !trap.failed();
}

// Finding symbols

void KeyMapX11::indexSymbols() {
  groupChanged_ = false;
  places_.clear();
  for (int keycode = minKeycode_; keycode <= maxKeycode_; ++keycode) {
    for (int level = 0; level < kLevels; ++level) {
      const uint32_t keysym = keysymAt(keycode, level);
      if (keysym != NoSymbol) places_.push_back({keysym, {keycode, level}});
    }
  }
  std::sort(places_.begin(), places_.end(), [](const Place& a, const Place& b) {
    return std::tie(a.keysym, a.key.level, a.key.keycode) <
           std::tie(b.keysym, b.key.level, b.key.keycode);
  });
}

uint32_t KeyMapX11::keysymAt(int keycode, int level) const {
  if (xkbDesc_) return xkbKeysymAt(keycode, level);
  // Asked on after the connection was lost, Xlib fills its buffer and then writes past its end.
  if (!tx::TXDisplay::isOpen()) return NoSymbol;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  return static_cast<uint32_t>(
      XKeycodeToKeysym(tx::TXDisplay::display(), static_cast<KeyCode>(keycode & 0xff), level));
#pragma GCC diagnostic pop
}

uint32_t KeyMapX11::xkbKeysymAt(int keycode, int level) const {
  const XkbClientMapRec& map = *xkbDesc_->map;
  const XkbSymMapRec& key = map.key_sym_map[keycode];
  const unsigned numGroups = key.group_info & 0x0f;
  if (numGroups == 0) return NoSymbol;
  const unsigned group = groupInRange(static_cast<unsigned>(xkbGroup_), key.group_info, numGroups);
  const int numLevels = map.types[key.kt_index[group & 3]].num_levels;
  if (level >= numLevels) {
    // A key with one level answers for its shifted one too.
    if (level != 1 || numLevels != 1) return NoSymbol;
    level = 0;
  }
  return static_cast<uint32_t>(map.syms[key.offset + static_cast<unsigned>(key.width) * group +
                                        static_cast<unsigned>(level)]);
}

std::optional<rfb::Keyboard::Key> KeyMapX11::find(uint32_t keysym, int preferredLevel) const {
  // The third level is always reached through ISO_Level3_Shift where there is one.
  if (keysym == kModeSwitch && level3Present_) return std::nullopt;
  const auto first =
      std::lower_bound(places_.begin(), places_.end(), keysym,
                       [](const Place& place, uint32_t wanted) { return place.keysym < wanted; });
  if (first == places_.end() || first->keysym != keysym) return std::nullopt;
  for (auto place = first; place != places_.end() && place->keysym == keysym; ++place) {
    if (place->key.level == preferredLevel) return place->key;
  }
  return first->key;
}

// State

bool KeyMapX11::isNumLockOn() {
  if (!xkbDesc_) {
    Window root, child;
    int rootX, rootY, x, y;
    XQueryPointer(tx::TXDisplay::display(), tx::TXDisplay::root(), &root, &child, &rootX, &rootY,
                  &x, &y, &modState_);
  }
  return (numLockMask_ & modState_) != 0;
}

bool KeyMapX11::isCapsLockOn() const {
  return (modState_ & LockMask) != 0;
}

void KeyMapX11::keySent(int keycode, bool down) {
  if (keycode != numLockKeycode_ && keycode != capsLockKeycode_) return;
  if (down) modState_ ^= keycode == numLockKeycode_ ? numLockMask_ : unsigned{LockMask};
  lockKeyRequest_ = NextRequest(tx::TXDisplay::display()) - 1;
}

}  // namespace svr
