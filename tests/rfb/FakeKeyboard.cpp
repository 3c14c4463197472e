#include "rfb/FakeKeyboard.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "rfb/Unicode.h"

namespace {

constexpr size_t moment = 5;  // presses

// Keys that are alike on every layout.
const struct {
  int keycode;
  std::array<uint32_t, 4> symbols;
  const char* name;
} commonKeys[] = {
    {9, {0xff1b}, "Escape"},  {22, {0xff08}, "BackSpace"},   {23, {0xff09, 0xfe20}, "Tab"},
    {36, {0xff0d}, "Return"}, {37, {0xffe3}, "Ctrl"},        {50, {0xffe1}, "Shift"},
    {62, {0xffe2}, "ShiftR"}, {63, {0xffaa}, "KP*"},         {64, {0xffe9}, "Alt"},
    {65, {0x20}, "Space"},    {66, {0xffe5}, "Caps"},        {71, {0xffc2}, "F5"},
    {77, {0xff7f}, "Num"},    {79, {0xff95, 0xffb7}, "KP7"}, {84, {0xff9d, 0xffb5}, "KP5"},
    {86, {0xffab}, "KP+"},    {104, {0xff8d}, "KPEnter"},    {105, {0xffe4}, "CtrlR"},
    {108, {}, "AltGr"},       {110, {0xff50}, "Home"},       {133, {0xffeb}, "Super"},
};

// Dead keysyms and the combining marks that they stand for, with what they give before a space.
const struct {
  uint32_t keysym;
  char32_t mark;
  char32_t alone;
} deadKeys[] = {
    {0xfe50, 0x300, U'`'}, {0xfe51, 0x301, U'\''}, {0xfe52, 0x302, U'^'}, {0xfe53, 0x303, U'~'},
    {0xfe54, 0x304, U'¯'}, {0xfe55, 0x306, U'˘'},  {0xfe56, 0x307, U'˙'}, {0xfe57, 0x308, U'"'},
    {0xfe58, 0x30a, U'°'}, {0xfe59, 0x30b, U'˝'},  {0xfe5a, 0x30c, U'ˇ'}, {0xfe5b, 0x327, U'¸'},
    {0xfe5c, 0x328, U'˛'},
};

uint32_t symbolOf(char32_t c) {
  if (c == U' ') return 0;
  for (const auto& dead : deadKeys)
    if (dead.mark == c) return dead.keysym;
  return unicode::keysymOf(c);
}

std::string utf8(char32_t c) {
  const auto byte = [](char32_t value) { return static_cast<char>(value); };
  if (c < 0x80) return {byte(c)};
  if (c < 0x800) return {byte(0xc0 | c >> 6), byte(0x80 | (c & 0x3f))};
  return {byte(0xe0 | c >> 12), byte(0x80 | (c >> 6 & 0x3f)), byte(0x80 | (c & 0x3f))};
}

bool isKeypad(uint32_t keysym) {
  return keysym >= 0xff80 && keysym <= 0xffbd;
}

}  // namespace

FakeKeyboard::FakeKeyboard(const KeyboardLayout& layout) : group_(layout.group) {
  minKeycode = 8;
  maxKeycode = 255;
  for (const auto& key : commonKeys) set(key.keycode, key.symbols);
  set(108, {layout.altGr});
  for (const KeyboardRow& row : layout.rows) {
    const std::u32string_view plain = row.levels[0];
    for (size_t i = 0; i < plain.size(); i++) {
      Symbols symbols{};
      for (size_t level = 0; level < 4; level++)
        if (const char32_t* keys = row.levels[level])
          if (i < std::u32string_view(keys).size()) symbols[level] = symbolOf(keys[i]);
      set(row.firstKeycode + static_cast<int>(i), symbols, row.group);
    }
  }
  if (!layout.spareKeys)
    for (int keycode = minKeycode; keycode <= maxKeycode; keycode++)
      if (keys_[keycode].empty()) set(keycode, {0x1008ff00u + static_cast<uint32_t>(keycode)});
}

FakeKeyboard::~FakeKeyboard() {
  for (const int keycode : down_) ADD_FAILURE() << nameOf(keycode) << " is still down";
  if (!expected_.empty()) {
    EXPECT_EQ(text_, expected_);
  }
}

void FakeKeyboard::set(int keycode, const Symbols& symbols, int group) {
  Key& key = keys_[keycode];
  const size_t g = static_cast<size_t>(group);
  key.groups[g] = symbols;
  // A key with symbols in a later group only carries the same ones in the first.
  if (key.groupCount == 0) key.groups[0] = symbols;
  key.groupCount = std::max(key.groupCount, group + 1);
}

const FakeKeyboard::Symbols& FakeKeyboard::symbols(int keycode) const {
  static const Symbols none{};
  const auto found = keys_.find(keycode);
  if (found == keys_.end() || found->second.empty()) return none;
  const Key& key = found->second;
  return key.groups[static_cast<size_t>(group_ % key.groupCount)];
}

void FakeKeyboard::bind(int keycode, uint32_t keysym) {
  EXPECT_FALSE(down_.count(keycode)) << nameOf(keycode) << " is rebound while it is down";
  EXPECT_EQ(std::count(recent_.begin(), recent_.end(), keycode), 0)
      << nameOf(keycode) << " is rebound just after it was used";
  keys_[keycode] = Key();
  if (keysym) set(keycode, {keysym});
}

int FakeKeyboard::addKeysym(uint32_t keysym) {
  if (!grafting) return -1;
  for (int keycode = maxKeycode; keycode >= minKeycode; keycode--) {
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

void FakeKeyboard::fakeKeyEvent(int keycode, bool isDown) {
  if (keycode < minKeycode || keycode > maxKeycode) {
    ADD_FAILURE() << "keycode " << keycode << " is outside the keyboard's range";
    return;
  }
  if (!isDown) {
    release(keycode);
    return;
  }
  // A repeat is a release and a press.
  if (interpreter_->isKeycodePressed(keycode)) release(keycode);
  press(keycode);
}

bool FakeKeyboard::isDown(std::initializer_list<uint32_t> keysyms) const {
  return std::any_of(down_.begin(), down_.end(), [&](int keycode) {
    return std::find(keysyms.begin(), keysyms.end(), symbols(keycode)[0]) != keysyms.end();
  });
}

void FakeKeyboard::release(int keycode) {
  events_ += " -" + nameOf(keycode);
  down_.erase(keycode);
}

void FakeKeyboard::press(int keycode) {
  events_ += " +" + nameOf(keycode);
  EXPECT_FALSE(down_.count(keycode)) << nameOf(keycode) << " is down already";
  const Symbols& all = symbols(keycode);
  const bool fourLevels = all[2] != 0 || all[3] != 0;
  size_t level = shiftDown() && all[1] != 0 ? 1 : 0;
  if (isKeypad(all[0]) && numLock && all[1] != 0) level ^= 1;
  if (level3Down() && fourLevels) level |= 2;
  uint32_t keysym = all[level];
  const char32_t character = unicode::characterOf(keysym);
  if (capsLock && level < 2 &&
      ((character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z')))
    keysym ^= 0x20;

  down_.insert(keycode);
  recent_.push_back(keycode);
  if (recent_.size() > moment) recent_.pop_front();
  if (keysym == 0xff7f) numLock = !numLock;
  if (keysym == 0xffe5) capsLock = !capsLock;
  symbols_.push_back(keysym);
  typed(keysym);
}

void FakeKeyboard::typed(uint32_t keysym) {
  for (const auto& dead : deadKeys) {
    if (dead.keysym != keysym) continue;
    EXPECT_EQ(pendingMark_, 0u) << "two dead keys in a row";
    pendingMark_ = dead.mark;
    return;
  }
  const char32_t character = unicode::characterOf(keysym);
  if (!character) return;
  if (!pendingMark_) {
    text_ += character;
    return;
  }
  char32_t composed = unicode::composed(character, pendingMark_);
  if (character == U' ')
    for (const auto& dead : deadKeys)
      if (dead.mark == pendingMark_) composed = dead.alone;
  EXPECT_NE(composed, 0u) << "a dead key before keysym " << std::hex << keysym;
  if (composed) text_ += composed;
  pendingMark_ = 0;
}

std::string FakeKeyboard::takeEvents() {
  const std::string events = std::exchange(events_, {});
  return events.empty() ? events : events.substr(1);
}

std::string FakeKeyboard::nameOf(int keycode) const {
  for (const auto& key : commonKeys)
    if (key.keycode == keycode) return key.name;
  const auto found = keys_.find(keycode);
  if (found == keys_.end() || found->second.empty()) return std::to_string(keycode);
  const uint32_t keysym = found->second.groups[0][0];
  for (const auto& dead : deadKeys)
    if (dead.keysym == keysym) return std::string("dead") + utf8(dead.alone);
  const char32_t character = unicode::characterOf(keysym);
  return character ? utf8(character) : std::to_string(keycode);
}
