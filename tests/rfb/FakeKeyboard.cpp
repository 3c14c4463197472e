#include "rfb/FakeKeyboard.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string_view>

namespace {

constexpr size_t kMoment = 5;  // presses

// Keys that are alike on every layout.
const struct {
  int keycode;
  std::array<uint32_t, 4> symbols;
  const char* name;
} kCommonKeys[] = {
    {23, {XKB_KEY_Tab, XKB_KEY_ISO_Left_Tab}, "Tab"},
    {37, {XKB_KEY_Control_L}, "Ctrl"},
    {50, {XKB_KEY_Shift_L}, "Shift"},
    {62, {XKB_KEY_Shift_R}, "ShiftR"},
    {64, {XKB_KEY_Alt_L}, "Alt"},
    {65, {XKB_KEY_space}, "Space"},
    {66, {XKB_KEY_Caps_Lock}, "Caps"},
    {71, {XKB_KEY_F5}, "F5"},
    {77, {XKB_KEY_Num_Lock}, "Num"},
    {79, {XKB_KEY_KP_Home, XKB_KEY_KP_7}, "KP7"},
    {84, {XKB_KEY_KP_Begin, XKB_KEY_KP_5}, "KP5"},
    {86, {XKB_KEY_KP_Add}, "KP+"},
    {105, {XKB_KEY_Control_R}, "CtrlR"},
    {108, {}, "AltGr"},
};

// Dead keys by their combining marks.
const std::map<char32_t, uint32_t> kDeadKeys = {{U'\u0300', XKB_KEY_dead_grave},
                                                {U'\u0301', XKB_KEY_dead_acute},
                                                {U'\u0302', XKB_KEY_dead_circumflex},
                                                {U'\u0303', XKB_KEY_dead_tilde},
                                                {U'\u0308', XKB_KEY_dead_diaeresis}};

uint32_t symbolOf(char32_t c) {
  if (c == U' ') return 0;
  const auto dead = kDeadKeys.find(c);
  return dead != kDeadKeys.end() ? dead->second : xkb_utf32_to_keysym(c);
}

bool isDead(uint32_t keysym) {
  return keysym >= XKB_KEY_dead_grave && keysym <= XKB_KEY_dead_diaeresis;
}

}  // namespace

FakeKeyboard::FakeKeyboard(const KeyboardLayout& layout)
    : group_(static_cast<size_t>(layout.group)) {
  minKeycode = 8;
  maxKeycode = 255;
  for (const auto& key : kCommonKeys) set(key.keycode, key.symbols);
  set(108, {layout.altGr});
  for (const KeyboardRow& row : layout.rows) {
    for (size_t i = 0; i < std::u32string_view(row.levels[0]).size(); i++) {
      Symbols symbols{};
      for (size_t level = 0; level < 4; level++)
        if (row.levels[level] && i < std::u32string_view(row.levels[level]).size())
          symbols[level] = symbolOf(row.levels[level][i]);
      set(row.firstKeycode + static_cast<int>(i), symbols, row.group);
    }
  }
  for (int keycode = minKeycode; !layout.spareKeys && keycode <= maxKeycode; keycode++)
    if (keys_[keycode].empty()) set(keycode, {0x1008ff00u + static_cast<uint32_t>(keycode)});
}

FakeKeyboard::~FakeKeyboard() {
  for (const int keycode : down_) ADD_FAILURE() << nameOf(keycode) << " is still down";
  if (!expected_.empty()) {
    EXPECT_EQ(text_, expected_);
  }
}

void FakeKeyboard::set(int keycode, const Symbols& symbols, int group) {
  std::vector<Symbols>& groups = keys_[keycode];
  groups.resize(std::max(groups.size(), static_cast<size_t>(group) + 1));
  groups[static_cast<size_t>(group)] = symbols;
}

const FakeKeyboard::Symbols& FakeKeyboard::symbols(int keycode) const {
  static const Symbols none{};
  const auto found = keys_.find(keycode);
  if (found == keys_.end() || found->second.empty()) return none;
  return found->second[group_ % found->second.size()];
}

void FakeKeyboard::bind(int keycode, uint32_t keysym) {
  EXPECT_FALSE(down_.count(keycode)) << nameOf(keycode) << " is rebound while it is down";
  EXPECT_EQ(std::count(recent_.begin(), recent_.end(), keycode), 0)
      << nameOf(keycode) << " is rebound just after it was used";
  keys_[keycode] = {{keysym}};
}

int FakeKeyboard::addKeysym(uint32_t keysym) {
  for (int keycode = maxKeycode; grafting && keycode >= minKeycode; keycode--) {
    if (!keys_[keycode].empty()) continue;
    bind(keycode, keysym);
    grafts++;
    return keycode;
  }
  return -1;
}

uint32_t FakeKeyboard::keycodeToKeysym(int keycode, int level) {
  const Symbols& all = symbols(keycode);
  if (oneLevelServesShift && level == 1 && all[1] == 0 && all[2] == 0 && all[3] == 0) return all[0];
  return all[static_cast<size_t>(level)];
}

void FakeKeyboard::fakeKeyEvent(int keycode, bool isPress) {
  ASSERT_TRUE(keycode >= minKeycode && keycode <= maxKeycode) << keycode;
  // A repeat is a release and a press.
  if (!isPress || interpreter_->isKeycodePressed(keycode)) release(keycode);
  if (isPress) press(keycode);
}

bool FakeKeyboard::isDown(uint32_t keysym) const {
  return std::any_of(down_.begin(), down_.end(),
                     [&](int keycode) { return symbols(keycode)[0] == keysym; });
}

void FakeKeyboard::release(int keycode) {
  events_ += " -" + nameOf(keycode);
  down_.erase(keycode);
}

void FakeKeyboard::press(int keycode) {
  events_ += " +" + nameOf(keycode);
  EXPECT_FALSE(down_.count(keycode)) << nameOf(keycode) << " is down already";
  const Symbols& all = symbols(keycode);
  size_t level = shiftDown() && all[1] != 0 ? 1 : 0;
  if (all[0] >= XKB_KEY_KP_Space && all[0] <= XKB_KEY_KP_Equal && numLock && all[1] != 0)
    level ^= 1;
  if ((isDown(XKB_KEY_ISO_Level3_Shift) || isDown(XKB_KEY_Mode_switch)) && (all[2] || all[3]))
    level |= 2;
  uint32_t keysym = all[level];
  if (capsLock && level < 2 && isalpha(static_cast<int>(keysym & 0xff)) && keysym < 0x80)
    keysym ^= 0x20;

  down_.insert(keycode);
  recent_.push_back(keycode);
  if (recent_.size() > kMoment) recent_.pop_front();
  if (keysym == XKB_KEY_Num_Lock) numLock = !numLock;
  if (keysym == XKB_KEY_Caps_Lock) capsLock = !capsLock;
  lastSymbol_ = keysym;
  typed(keysym);
}

void FakeKeyboard::typed(uint32_t keysym) {
  if (isDead(keysym)) {
    EXPECT_EQ(pendingDead_, 0u) << "two dead keys in a row";
    pendingDead_ = keysym;
    return;
  }
  const std::string text = support::textOf(keysym);
  if (text.empty()) return;
  const uint32_t dead = std::exchange(pendingDead_, 0);
  text_ += dead ? composer_.compose(dead, keysym) : text;
}

std::string FakeKeyboard::takeEvents() {
  const std::string events = std::exchange(events_, {});
  return events.empty() ? events : events.substr(1);
}

std::string FakeKeyboard::nameOf(int keycode) const {
  for (const auto& key : kCommonKeys)
    if (key.keycode == keycode) return key.name;
  const auto found = keys_.find(keycode);
  if (found == keys_.end() || found->second.empty()) return std::to_string(keycode);
  const uint32_t keysym = found->second[0][0];
  if (isDead(keysym)) return "dead" + composer_.compose(keysym, XKB_KEY_space);
  return support::textOf(keysym);
}
