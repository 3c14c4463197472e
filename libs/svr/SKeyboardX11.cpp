#include "svr/SKeyboardX11.h"

#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>
#include <unistd.h>

#include <algorithm>

#include "plat/log/LogSrc.h"
#include "tx/TXDisplay.h"
#include "tx/XResources.h"
#include "tx/XTestExtension.h"

namespace svr {

namespace {

plat::LogSrc vlog("SKeyboardX11");

constexpr int kAutoRepeatDelayMs = 3000;
// Time for releases to reach the X server before the connection may close.
constexpr useconds_t kReleaseDelayUs = 100 * 1000;

constexpr uint32_t kModeSwitch = 0xff7e;
constexpr uint32_t kIsoLevel3Shift = 0xfe03;

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

SKeyboardX11::SKeyboardX11() : interpreter_(*this), autoRepeatTimer_(this) {
  XDisplayKeycodes(tx::TXDisplay::display(), &minKeycode, &maxKeycode);
  openXkb();
  level3Present_ =
      rfb::KeyEventInterpreter::Callback::keysymToKeycode(kIsoLevel3Shift, nullptr) >= 0;
  findLockKeys();
}

SKeyboardX11::~SKeyboardX11() {
  if (!tx::TXDisplay::isOpen()) return;
  interpreter_.releasePressedKeys();
  setAutoRepeatOff(false);
  XFlush(tx::TXDisplay::display());
  usleep(kReleaseDelayUs);
}

void SKeyboardX11::openXkb() {
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

void SKeyboardX11::keyEvent(uint32_t keysym, bool down) {
  if (!tx::TXDisplay::isOpen() || !tx::XTestExtension::present()) return;
  lookAhead();
  followMapping();
  interpreter_.keyEvent(keysym, down);
  if (!interpreter_.hasPressedKeysyms()) autoRepeatTimer_.start(kAutoRepeatDelayMs);
}

void SKeyboardX11::releaseKeys() {
  if (!tx::TXDisplay::isOpen() || !interpreter_.hasPressedKeysyms()) return;
  interpreter_.releasePressedKeys();
  autoRepeatTimer_.start(kAutoRepeatDelayMs);
}

void SKeyboardX11::timerCallback(plat::Timer&) {
  if (tx::TXDisplay::isOpen()) setAutoRepeatOff(false);
}

// The keyboard's map

void SKeyboardX11::handleEvent(const XEvent& event) {
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
      xkbGroup_ = xkbEvent.state.group;
      // Lock keys that have been pressed here since are known already.
      if (!isBefore(event, lockKeyRequest_)) modState_ = xkbEvent.state.mods;
      break;
    default:
      break;
  }
}

// A group or map that was switched before the viewer's key may have its event still in the queue.
// Events stay there for everybody: what is seen now is seen again in its turn.
void SKeyboardX11::lookAhead() {
  Display* display = tx::TXDisplay::display();
  if (XEventsQueued(display, QueuedAfterReading) == 0) return;
  XEvent event;
  XCheckIfEvent(
      display, &event,
      [](Display*, XEvent* queued, XPointer self) -> Bool {
        reinterpret_cast<SKeyboardX11*>(self)->handleEvent(*queued);
        return False;
      },
      reinterpret_cast<XPointer>(this));
}

// One change of the map makes several events: it is read once for all of them, before it is needed.
void SKeyboardX11::followMapping() {
  if (!coreMapChanged_ && !xkbMapChanged_) return;
  Display* display = tx::TXDisplay::display();
  mapRequest_ = NextRequest(display);
  if (coreMapChanged_) {
    XMappingEvent mapping{};
    mapping.type = MappingNotify;
    mapping.display = display;
    mapping.first_keycode = minKeycode;
    mapping.count = maxKeycode - minKeycode + 1;
    for (const int request : {MappingKeyboard, MappingModifier}) {
      mapping.request = request;
      XRefreshKeyboardMapping(&mapping);
    }
  }
  if (xkbMapChanged_) {
    // After a failure the former map is still there.
    XkbGetUpdatedMap(display, kMapParts, xkbDesc_.get());
    minKeycode = xkbDesc_->min_key_code;
    maxKeycode = xkbDesc_->max_key_code;
  }
  coreMapChanged_ = xkbMapChanged_ = false;
  findLockKeys();
}

void SKeyboardX11::findLockKeys() {
  interpreter_.findLockKeys();
  numLockMask_ = 0;
  const std::unique_ptr<XModifierKeymap, ModifierMapDeleter> map(
      XGetModifierMapping(tx::TXDisplay::display()));
  if (!map) return;
  for (unsigned i = 0; i < 8 * static_cast<unsigned>(map->max_keypermod); ++i) {
    if (map->modifiermap[i] != interpreter_.numLockKeycode()) continue;
    numLockMask_ = 1u << i / static_cast<unsigned>(map->max_keypermod);
    return;
  }
}

uint32_t SKeyboardX11::keycodeToKeysym(int keycode, int level) {
  if (xkbDesc_) return xkbKeysym(keycode, level);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  return static_cast<uint32_t>(
      XKeycodeToKeysym(tx::TXDisplay::display(), static_cast<KeyCode>(keycode & 0xff), level));
#pragma GCC diagnostic pop
}

uint32_t SKeyboardX11::xkbKeysym(int keycode, int level) const {
  if (keycode < xkbDesc_->min_key_code || keycode > xkbDesc_->max_key_code) return NoSymbol;
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

int SKeyboardX11::keysymToKeycode(uint32_t keysym, int* level) {
  // The third level is always reached through ISO_Level3_Shift where there is one.
  if (keysym == kModeSwitch && level3Present_) return -1;
  return rfb::KeyEventInterpreter::Callback::keysymToKeycode(keysym, level);
}

int SKeyboardX11::addKeysym(uint32_t keysym) {
  Display* display = tx::TXDisplay::display();
  int symsPerKeycode = 0;
  const tx::XMemory<KeySym> map(XGetKeyboardMapping(display, static_cast<KeyCode>(minKeycode),
                                                    maxKeycode - minKeycode + 1, &symsPerKeycode));
  const auto row = [&](int keycode) { return map.get() + (keycode - minKeycode) * symsPerKeycode; };
  if (map && symsPerKeycode > 0) {
    // A keysym that comes again before the change of the map has been reported.
    for (const Graft& graft : grafts_) {
      if (graft.keysym == keysym && graft.keycode >= minKeycode && graft.keycode <= maxKeycode &&
          static_cast<uint32_t>(row(graft.keycode)[0]) == keysym) {
        return graft.keycode;
      }
    }

    for (int keycode = maxKeycode; keycode >= minKeycode; --keycode) {
      KeySym* const syms = row(keycode);
      if (!std::all_of(syms, syms + symsPerKeycode, [](KeySym s) { return s == NoSymbol; })) {
        continue;
      }
      syms[0] = keysym;
      // A letter alone is taken for both of its cases.
      KeySym lower, upper;
      XConvertCase(keysym, &lower, &upper);
      if (lower != upper && symsPerKeycode > 1) syms[1] = keysym;
      XChangeKeyboardMapping(display, keycode, symsPerKeycode, syms, 1);
      vlog.info("Added unknown keysym 0x%x to keycode %d", keysym, keycode);
      std::erase_if(grafts_, [&](const Graft& g) { return g.keycode == keycode; });
      grafts_.push_back({keycode, keysym});
      return keycode;
    }
  }
  vlog.info("Keyboard mapping full - ignoring unknown keysym 0x%x", keysym);
  return -1;
}

// State and injection

bool SKeyboardX11::isNumLockOn() {
  if (!xkbDesc_) {
    Window root, child;
    int rootX, rootY, x, y;
    XQueryPointer(tx::TXDisplay::display(), tx::TXDisplay::root(), &root, &child, &rootX, &rootY,
                  &x, &y, &modState_);
  }
  return (numLockMask_ & modState_) != 0;
}

bool SKeyboardX11::isCapsLockOn() {
  return (modState_ & LockMask) != 0;
}

void SKeyboardX11::fakeKeyEvent(int keycode, bool down) {
  Display* display = tx::TXDisplay::display();
  const auto code = static_cast<unsigned>(keycode);
  if (down) {
    if (keycode == interpreter_.numLockKeycode()) {
      modState_ ^= numLockMask_;
    } else if (keycode == interpreter_.capsLockKeycode()) {
      modState_ ^= LockMask;
    }
    // Under a key that is held auto-repeat must not come back.
    autoRepeatTimer_.stop();
    setAutoRepeatOff(true);
    if (interpreter_.isKeycodePressed(keycode)) {
      XTestFakeKeyEvent(display, code, False, CurrentTime);
    }
  }
  XTestFakeKeyEvent(display, code, down, CurrentTime);
  if (keycode == interpreter_.numLockKeycode() || keycode == interpreter_.capsLockKeycode()) {
    lockKeyRequest_ = NextRequest(display) - 1;
  }
}

void SKeyboardX11::setAutoRepeatOff(bool off) {
  if (off == autoRepeatOff_) return;
  Display* display = tx::TXDisplay::display();
  if (off) {
    XKeyboardState state;
    XGetKeyboardControl(display, &state);
    // Whoever switched it off already keeps it.
    if (state.global_auto_repeat != AutoRepeatModeOn) return;
  }
  autoRepeatOff_ = off;
  XKeyboardControl control{};
  control.auto_repeat_mode = off ? AutoRepeatModeOff : AutoRepeatModeOn;
  XChangeKeyboardControl(display, KBAutoRepeatMode, &control);
}

}  // namespace svr
